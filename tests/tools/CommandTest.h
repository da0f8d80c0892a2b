#pragma once
// The command as a person or a script uses it: the built program, a profile of its own, with or without a terminal.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/types.h>

#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "tests/support/Pki.h"
#include "tests/support/Process.h"

namespace tests {

namespace fs = std::filesystem;
using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

// A program on a terminal of its own; ended with the object.
class Terminal {
  public:
    explicit Terminal(const std::string& line);  // of the shell
    // The function's result becomes the exit status. It runs in a copy of this process.
    explicit Terminal(const std::function<int()>& program);
    ~Terminal();
    Terminal(const Terminal&) = delete;
    Terminal& operator=(const Terminal&) = delete;

    // Waits until the program has written the text, behind what was expected before. After some seconds the test fails.
    bool Expect(const std::string& text);
    void Type(const std::string& keys) const;
    // For each pair: waits for the first text and types the second.
    void Answer(const std::vector<std::pair<std::string, std::string>>& answers);
    [[nodiscard]] bool ShowsKeys() const;  // as terminals do unless told otherwise
    [[nodiscard]] pid_t Id() const { return child_; }
    // Reads on until the end; the exit status, or minus the signal.
    int Wait();
    [[nodiscard]] const std::string& Seen() const { return seen_; }

  private:
    bool ReadMore();
    int terminal_ = -1;
    pid_t child_ = -1;
    std::string seen_;
    std::size_t expected_ = 0;
};

class CommandTest : public testing::Test {
  protected:
    // The test stands in the folder of the documents: names of files count from there.
    CommandTest();
    ~CommandTest() override { fs::current_path("/"); }

    // A line of the shell, in which `norvik` is the command and knows no token but the test's. Nobody sits at a
    // terminal.
    [[nodiscard]] static ProcessResult Shell(const std::string& line, const std::string& input = {});
    [[nodiscard]] static ProcessResult Run(const std::string& arguments, const std::string& input = {}) {
        return Shell("norvik " + arguments, input);
    }
    // One run after the other, each behind the words in `first`. Told in output or errors; what begins with "!" is not
    // told there, and what begins with "=" is all of the output.
    struct Step {
        std::string line;
        int status;
        std::vector<std::string> told = {};
        std::string input = {};
    };
    static void Walk(const std::vector<Step>& steps, const std::string& first = "norvik ");

    fs::path Document(const std::string& name, std::string_view content = "words") const {
        return profile_.Write("documents/" + name, content);
    }
    fs::path Document(const std::string& name, const Bytes& content) const {
        return Document(name, platform::AsText(content));
    }
    [[nodiscard]] static std::vector<std::string> FilesIn(const fs::path& folder = ".");  // names, sorted
    // What openssl takes out of a message that it accepts; "refused: ..." otherwise.
    [[nodiscard]] std::string AcceptedContent(const std::string& message, const std::string& detachedData = {}) const;

    // Somebody whose certificate can be checked has signed a.txt, attached and detached.
    void SignADocument() const;
    // The file with another content than was signed.
    void Change(const std::string& from, const std::string& to) const;

    Profile profile_;
    StandardPki pki_;
};

}  // namespace tests

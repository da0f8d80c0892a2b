#pragma once
// The command as a person or a script uses it: the built program, a profile of its own, with or without a terminal.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/types.h>

#include <functional>
#include <string>
#include <vector>

#include "tests/support/Pki.h"
#include "tests/support/Process.h"

namespace tests {

// A program on a terminal of its own; ended with the object.
class Terminal {
  public:
    explicit Terminal(const std::vector<std::string>& command);
    // The function's result becomes the exit status. It runs in a copy of this process.
    explicit Terminal(const std::function<int()>& program);
    ~Terminal();
    Terminal(const Terminal&) = delete;
    Terminal& operator=(const Terminal&) = delete;

    // Waits until the program has written the text, behind what was expected before. False after some seconds.
    bool Expect(const std::string& text);
    void Type(const std::string& keys);
    [[nodiscard]] bool ShowsKeys() const;  // as terminals do unless told otherwise
    [[nodiscard]] pid_t Id() const { return child_; }
    // Reads on until the end; the exit status, or minus the signal.
    int Wait();
    [[nodiscard]] const std::string& Seen() const { return seen_; }

  private:
    void Fork();
    bool ReadMore(int milliseconds);
    int terminal_ = -1;
    pid_t child_ = -1;
    std::string seen_;
    std::size_t expected_ = 0;
};

class CommandTest : public testing::Test {
  protected:
    CommandTest();
    void TearDown() override { std::filesystem::current_path("/"); }

    // The command line that runs `norvik` with these arguments and knows no token but the test's.
    [[nodiscard]] std::vector<std::string> Line(const std::vector<std::string>& arguments) const;
    // Runs it without a terminal, in the folder Documents().
    [[nodiscard]] ProcessResult Run(const std::vector<std::string>& arguments, const std::string& input = {}) const;
    // The same below another program ("sh", "-c", ...).
    [[nodiscard]] ProcessResult RunBelow(std::vector<std::string> program, const std::vector<std::string>& arguments,
                                         const ProcessOptions& options = {}) const;

    // One run after the other, each behind the words in `first`; told in output or errors.
    struct Step {
        std::vector<std::string> arguments;
        int status;
        std::string told = {};
        std::string input = {};
    };
    void Walk(const std::vector<Step>& steps, const std::vector<std::string>& first = {}) const;

    [[nodiscard]] std::filesystem::path Documents() const { return profile_.Folder() / "documents"; }
    std::filesystem::path Document(const std::string& name, std::string_view content = "words") const {
        return profile_.Write("documents/" + name, content);
    }
    [[nodiscard]] std::vector<std::string> FilesIn(const std::filesystem::path& folder) const;  // names, sorted
    [[nodiscard]] std::string Log() const;
    // What openssl takes out of a message that it accepts; "refused: ..." otherwise.
    [[nodiscard]] std::string AcceptedContent(const std::filesystem::path& message,
                                              const std::filesystem::path& detachedData = {}) const;

    Profile profile_;
    StandardPki pki_;
};

}  // namespace tests

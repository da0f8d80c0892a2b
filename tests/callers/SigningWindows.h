#pragma once
// A person who signs on a screen: the test's stores and documents, and programs that show the windows.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

#include "tests/callers/Screen.h"
#include "tests/support/Pki.h"

namespace tests {

namespace fs = std::filesystem;
using testing::AllOf;
using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;

class SigningDocuments : public testing::Test {
  protected:
    SigningDocuments();

    // Signs the document as somebody else's program does.
    void SignByPeer(const std::string& signature, const std::string& options = {}) const;
    [[nodiscard]] std::vector<std::string> Script(const std::vector<std::string>& arguments) const;

    Profile profile_;
    StandardPki pki_;
    fs::path document_;
    fs::path library_ = NORVIK_BINARY_DIR "/lib/libNorvik.so";
};

class SigningWindows : public SigningDocuments {
  protected:
    // Lets a program run, with no tokens but the test's to be seen.
    void Start(const std::vector<std::string>& command);
    // The same for one of the programs in callers/programs, which get the library first.
    void StartCaller(const std::string& program, const std::vector<std::string>& arguments);
    // The number of the window with that title, photographed if the picture has a name; the test fails without it.
    std::string Window(const std::string& title, const std::string& picture = {}) const;
    // What the program wrote until it ended with this status; the test fails with another.
    ProcessResult Ended(int status = 3);
    // That the program's own window, whose number it wrote, owns the dialog whose owner this is.
    static void ExpectOwner(const std::string& owner, const ProcessResult& result);

    // For NorvikSignFileJson and the document.
    [[nodiscard]] std::string Request(int mode) const;
    // The name of the file that the process of the window runs.
    [[nodiscard]] std::string ProgramOf(const std::string& window) const;
    // What openssl takes out of the signature that lies beside the document under that ending; "refused ..." otherwise.
    [[nodiscard]] std::string Signed(const std::string& ending) const;

    const Screen screen_;
    std::future<ProcessResult> running_;
};

}  // namespace tests

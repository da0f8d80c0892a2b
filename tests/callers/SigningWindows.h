#pragma once
// A person who signs on a screen: the test's stores and documents, and programs that show the windows.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

#include "tests/callers/Screen.h"
#include "tests/support/Pki.h"
#include "tests/support/Profile.h"

namespace tests {

class SigningDocuments : public testing::Test {
  protected:
    SigningDocuments();

    // Signs the document as somebody else's program does.
    void SignByPeer(const std::string& signature, const std::vector<std::string>& options = {}) const;

    Profile profile_;
    StandardPki pki_;
    std::filesystem::path document_;
    std::filesystem::path library_ = NORVIK_BINARY_DIR "/lib/libNorvik.so";
};

class SigningWindows : public SigningDocuments {
  protected:
    // The command line, with no tokens but the test's to be seen.
    [[nodiscard]] std::vector<std::string> WithoutTokens(const std::vector<std::string>& command) const;
    [[nodiscard]] std::vector<std::string> Script(const std::vector<std::string>& arguments) const;
    // For NorvikSignFileJson and the document.
    [[nodiscard]] std::string Request(int mode) const;
    // The name of the file that the process of the window runs.
    [[nodiscard]] std::string ProgramOf(const std::string& window) const;
    // What openssl takes out of the signature that lies beside the document under that ending; "refused ..." otherwise.
    [[nodiscard]] std::string Signed(const std::string& ending) const;

    const Screen screen_;
};

}  // namespace tests

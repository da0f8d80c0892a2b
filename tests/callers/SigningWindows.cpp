#include "tests/callers/SigningWindows.h"

namespace tests {

SigningDocuments::SigningDocuments() {
    profile_.Write("pkcs11/pkcs11.conf", "user-config: none\n");
    fs::create_directory(profile_.Folder() / "pkcs11/modules");
    pki_.Install(profile_);
    document_ = profile_.Write("documents/Договор №5.txt", "words");
    profile_.Write("signer.pem", pki_.signer.Pem() + pki_.signer.KeyPem());
    profile_.Write("ca.pem", pki_.ca.Pem());
    profile_.Write("root.pem", pki_.root.Pem());
}

void SigningDocuments::SignByPeer(const std::string& signature, const std::string& options) const {
    const auto line = "openssl cms -sign -binary -outform DER -signer signer.pem -certfile ca.pem " + options;
    EXPECT_EQ(RunProgram({"sh", "-c", line + " -in \"$1\" -out \"$2\"", "sh", document_, signature},
                         {.folder = profile_.Folder()})
                  .status,
              0);
}

std::vector<std::string> SigningDocuments::Script(const std::vector<std::string>& arguments) const {
    std::vector<std::string> line{"/usr/bin/python3", "-B", NORVIK_SOURCE_DIR "/tests/callers/programs/script.py",
                                  library_};
    line.insert(line.end(), arguments.begin(), arguments.end());
    return line;
}

void SigningWindows::Start(const std::vector<std::string>& command) {
    std::vector<std::string> line{"env", "LD_PRELOAD=" NORVIK_BINARY_DIR "/lib/norvik-test-tokens.so",
                                  "NORVIK_TEST_PKCS11=" + (profile_.Folder() / "pkcs11").string()};
    line.insert(line.end(), command.begin(), command.end());
    running_ = screen_.Start(line);
}

void SigningWindows::StartCaller(const std::string& program, const std::vector<std::string>& arguments) {
    std::vector<std::string> line{NORVIK_BINARY_DIR "/tests/callers/" + program, library_};
    line.insert(line.end(), arguments.begin(), arguments.end());
    Start(line);
}

std::string SigningWindows::Window(const std::string& title, const std::string& picture) const {
    auto window = screen_.WaitForWindow(title);
    EXPECT_NE(window, "") << title;
    EXPECT_TRUE(picture.empty() || screen_.Photograph(picture));
    return window;
}

ProcessResult SigningWindows::Ended(int status) {
    auto result = running_.get();
    EXPECT_EQ(result.status, status) << result.Summary();
    return result;
}

void SigningWindows::ExpectOwner(const std::string& owner, const ProcessResult& result) {
    const auto number = result.output.substr(6, result.output.find('\n') - 6);
    EXPECT_THAT(owner, HasSubstr("window id # " + number + "\n"));
}

std::string SigningWindows::Request(int mode) const {
    return "{\"SignFile\":\"" + document_.string() + "\",\"SignMode\":" + std::to_string(mode) + "}";
}

std::string SigningWindows::ProgramOf(const std::string& window) const {
    std::error_code error;
    return fs::read_symlink("/proc/" + std::to_string(screen_.ProcessOf(window)) + "/exe", error).filename();
}

std::string SigningWindows::Signed(const std::string& ending) const {
    const std::string line =
        "openssl cms -verify -binary -inform DER -in \"$1\" -content \"$2\" -CAfile root.pem -purpose any";
    const auto verdict =
        RunProgram({"sh", "-c", line, "sh", document_.string() + ending, document_}, {.folder = profile_.Folder()});
    return verdict.status == 0 ? verdict.output : "refused: " + verdict.errors;
}

}  // namespace tests

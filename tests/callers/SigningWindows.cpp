#include "tests/callers/SigningWindows.h"

namespace tests {

SigningDocuments::SigningDocuments() {
    profile_.Write("pkcs11/pkcs11.conf", "user-config: none\n");
    std::filesystem::create_directory(profile_.Folder() / "pkcs11/modules");
    pki_.Install(profile_);
    document_ = profile_.Write("documents/Договор №5.txt", "words");
}

void SigningDocuments::SignByPeer(const std::string& signature, const std::vector<std::string>& options) const {
    const auto signer = profile_.Write("s.pem", pki_.signer.Pem()), key = profile_.Write("s.key", pki_.signer.KeyPem()),
               others = profile_.Write("ca.pem", pki_.ca.Pem());
    std::vector<std::string> sign{"openssl", "cms",     "-sign",   "-binary", "-outform", "DER", "-in",       document_,
                                  "-out",    signature, "-signer", signer,    "-inkey",   key,   "-certfile", others};
    sign.insert(sign.end(), options.begin(), options.end());
    EXPECT_EQ(RunProgram(sign).status, 0);
}

std::vector<std::string> SigningWindows::WithoutTokens(const std::vector<std::string>& command) const {
    std::vector<std::string> line{"env", "LD_PRELOAD=" NORVIK_BINARY_DIR "/lib/norvik-test-tokens.so",
                                  "NORVIK_TEST_PKCS11=" + (profile_.Folder() / "pkcs11").string()};
    line.insert(line.end(), command.begin(), command.end());
    return line;
}

std::vector<std::string> SigningWindows::Script(const std::vector<std::string>& arguments) const {
    std::vector<std::string> line{"/usr/bin/python3", "-B", NORVIK_SOURCE_DIR "/tests/callers/programs/caller.py",
                                  library_};
    line.insert(line.end(), arguments.begin(), arguments.end());
    return WithoutTokens(line);
}

std::string SigningWindows::Request(int mode) const {
    return "{\"SignFile\":\"" + document_.string() + "\",\"SignMode\":" + std::to_string(mode) + "}";
}

std::string SigningWindows::ProgramOf(const std::string& window) const {
    std::error_code error;
    return std::filesystem::read_symlink("/proc/" + std::to_string(screen_.ProcessOf(window)) + "/exe", error)
        .filename();
}

std::string SigningWindows::Signed(const std::string& ending) const {
    const auto root = profile_.Write("root.pem", pki_.root.Pem());
    std::vector<std::string> verify = {"openssl", "cms", "-verify",  "-binary",
                                       "-inform", "DER", "-in",      document_.string() + ending,
                                       "-CAfile", root,  "-purpose", "any"};
    if (ending == ".p7s") verify.insert(verify.end(), {"-content", document_});
    const auto verdict = RunProgram(verify);
    return verdict.status == 0 ? verdict.output : "refused: " + verdict.errors;
}

}  // namespace tests

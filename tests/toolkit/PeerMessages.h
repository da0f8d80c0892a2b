#pragma once
// Messages that the openssl command signs with certificates of the test.

#include <gtest/gtest.h>

#include "tests/support/Pki.h"
#include "tests/support/Process.h"
#include "tests/support/Profile.h"

namespace testing_support {

// "rsa2048", "p256" ... as tables write it.
inline tests::KeyType KeyTypeNamed(const std::string& name) {
    static const std::map<std::string, tests::KeyType> names = {
        {"rsa2048", tests::KeyType::rsa2048}, {"rsa3072", tests::KeyType::rsa3072},
        {"rsa4096", tests::KeyType::rsa4096}, {"p256", tests::KeyType::p256},
        {"p384", tests::KeyType::p384},       {"dsa2048", tests::KeyType::dsa2048}};
    return names.at(name);
}

// The certificate and its key as PEM files NAME.pem and NAME.key.
inline void WritePem(const tests::Profile& profile, const std::string& name, const tests::Certificate& certificate) {
    profile.Write(name + ".pem", certificate.Pem());
    profile.Write(name + ".key", certificate.KeyPem());
}

inline platform::Bytes FileIn(const tests::Profile& profile, const std::string& name) {
    return platform::CopyOf(platform::AsBytes(tests::ReadFile(profile.Folder() / name)));
}

// Runs a program in the profile's folder; its failure is the test's.
inline bool RunIn(const tests::Profile& profile, const std::vector<std::string>& command) {
    const auto result = tests::RunProgram(command, {.folder = profile.Folder()});
    EXPECT_EQ(result.status, 0) << command.front() << ' ' << command.at(1) << ": " << result.Summary();
    return result.status == 0;
}

// `openssl cms -sign` of the file "content" by "signer" into the file "message", with more options; empty on failure.
inline platform::Bytes OpenSslSign(const tests::Profile& profile, const std::vector<std::string>& options = {},
                                   const std::string& signer = "signer") {
    std::vector<std::string> command{"openssl",  "cms",     "-sign",         "-binary", "-in",
                                     "content",  "-signer", signer + ".pem", "-inkey",  signer + ".key",
                                     "-outform", "DER",     "-out",          "message"};
    command.insert(command.end(), options.begin(), options.end());
    if (!RunIn(profile, command)) return {};
    return FileIn(profile, "message");
}

}  // namespace testing_support

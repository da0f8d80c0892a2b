#pragma once
// Signed messages for the tests of the message service: made by openssl, read by ours.

#include <gtest/gtest.h>

#include "platform/Messages.h"
#include "tests/support/Pki.h"
#include "tests/support/Process.h"
#include "tests/support/Profile.h"

namespace tests {

constexpr std::uint32_t kMessageEncoding = platform::PKCS_7_ASN_ENCODING | platform::X509_ASN_ENCODING;

// Bytes that the source keeps.
class BytesSource final : public platform::ByteSource {
  public:
    explicit BytesSource(platform::Bytes bytes) : bytes_(std::move(bytes)), source_(bytes_) {}
    [[nodiscard]] std::uint64_t Size() const override { return source_.Size(); }
    std::optional<platform::ByteView> View(std::uint64_t offset, std::size_t least, std::uint64_t most) override {
        return source_.View(offset, least, most);
    }

  private:
    platform::Bytes bytes_;
    platform::MemorySource source_;
};

// A message that was read; null with the last error if it cannot be.
inline platform::CryptMsg Read(platform::ByteView bytes, const platform::Bytes* data = nullptr) {
    const auto flags = data != nullptr ? platform::CMSG_DETACHED_FLAG : 0U;
    auto message = platform::CryptMsgOpenToDecode(kMessageEncoding, flags);
    if (!platform::CryptMsgUpdate(message, bytes, true)) return {};
    if (data != nullptr && !platform::CryptMsgUpdate(message, *data, true)) return {};
    return message;
}

// Signer, certificate and status in one; the status tells why there is none.
inline platform::FoundSigner Judge(const platform::CryptMsg& message, std::uint32_t signer = 0) {
    const auto found = platform::CryptMsgGetAndVerifySigner(message, signer, {platform::CertOpenMessageStore(message)});
    return found.value_or(platform::FoundSigner{{}, platform::GetLastError()});
}

// A folder with a signer's certificate and key and the file "content".
class MessageFixture : public testing::Test {
  protected:
    explicit MessageFixture(const std::string& content = "pay 100") { profile_.Write("content", content); }

    void WriteSigner(const std::string& name, const Certificate& certificate) {
        profile_.Write(name + ".pem", certificate.Pem());
        profile_.Write(name + ".key", certificate.KeyPem());
    }
    // A certificate NAME.pem with its key NAME.key.
    Certificate MakeSigner(const std::string& name, KeyType type = KeyType::p256) {
        auto certificate = Issue({.subject = {{"CN", name}}, .key = TestKey(type)});
        WriteSigner(name, certificate);
        return certificate;
    }
    // Runs a program in the folder; its failure is the test's.
    void Run(const std::vector<std::string>& command) {
        const auto result = RunProgram(command, {.folder = profile_.Folder()});
        EXPECT_EQ(result.status, 0) << command.front() << ": " << result.Summary();
    }
    platform::Bytes File(const std::string& name) {
        return platform::CopyOf(platform::AsBytes(ReadFile(profile_.Folder() / name)));
    }
    // `openssl cms -sign` of the content by "signer" with more options.
    platform::Bytes Sign(const std::vector<std::string>& options, const std::string& signer = "signer") {
        std::vector<std::string> command{"openssl",  "cms",     "-sign",         "-binary", "-in",
                                         "content",  "-signer", signer + ".pem", "-inkey",  signer + ".key",
                                         "-outform", "DER",     "-out",          "message"};
        command.insert(command.end(), options.begin(), options.end());
        Run(command);
        return File("message");
    }

    Profile profile_;
};

}  // namespace tests

#pragma once
// Signed messages for the tests of the message service: made by openssl, read by ours.

#include "platform/Messages.h"
#include "tests/toolkit/PeerMessages.h"

namespace tests {

constexpr std::uint32_t kMessageEncoding = platform::PKCS_7_ASN_ENCODING | platform::X509_ASN_ENCODING;

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

    // A certificate NAME.pem with its key NAME.key.
    void WriteSigner(const std::string& name, const Certificate& certificate) {
        testing_support::WritePem(profile_, name, certificate);
    }
    Certificate MakeSigner(const std::string& name, KeyType type = KeyType::p256) {
        auto certificate = Issue({.subject = {{"CN", name}}, .key = TestKey(type)});
        WriteSigner(name, certificate);
        return certificate;
    }
    void Run(const std::vector<std::string>& command) { testing_support::RunIn(profile_, command); }
    platform::Bytes File(const std::string& name) { return testing_support::FileIn(profile_, name); }
    platform::Bytes Sign(const std::vector<std::string>& options, const std::string& signer = "signer") {
        return testing_support::OpenSslSign(profile_, options, signer);
    }

    Profile profile_;
};

}  // namespace tests

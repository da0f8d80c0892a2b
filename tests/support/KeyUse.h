#pragma once
// Private keys as an operation uses them, and a user who is asked for their PINs and passphrases and remembers the
// questions.

#include <deque>

#include "platform/Keys.h"
#include "tests/support/Made.h"

namespace tests {

class ScriptedPins : public platform::PinPrompt {
  public:
    // The answers in order; after the last one, and for an empty optional, the user gives up.
    explicit ScriptedPins(std::deque<std::optional<std::string>> answers) : answers_(std::move(answers)) {}
    std::optional<platform::Secret> AskPin(const platform::PinRequest& request) override {
        asked.push_back(request);
        if (answers_.empty()) return std::nullopt;
        const auto answer = answers_.front();
        answers_.pop_front();
        return answer ? std::optional<platform::Secret>(*answer) : std::nullopt;
    }
    std::vector<platform::PinRequest> asked;

  private:
    std::deque<std::optional<std::string>> answers_;
    platform::PinPromptScope scope_{*this};
};

// The key as the signing operations ask for it.
inline std::optional<platform::AcquiredKey> AcquireKey(const platform::CertificateContext& certificate) {
    platform::SetLastError(platform::ERROR_SUCCESS);
    return platform::CryptAcquireCertificatePrivateKey(
        certificate, platform::CRYPT_ACQUIRE_PREFER_NCRYPT_KEY_FLAG | platform::CRYPT_ACQUIRE_COMPARE_KEY_FLAG);
}

// A signature over a small fixed content, and the verdict on it by the crypto library's own way from content to answer,
// which shares no step with ours.
inline platform::Bytes SignContent(const platform::PrivateKey& key,
                                   platform::HashAlgorithm hash = platform::HashAlgorithm::sha256) {
    platform::SetLastError(platform::ERROR_SUCCESS);
    return platform::NCryptSignHash(key, hash, platform::Digest(hash, platform::AsBytes("Norvik")));
}
inline bool IsContentSignature(const Certificate& signer, const platform::Bytes& signature,
                               platform::HashAlgorithm hash = platform::HashAlgorithm::sha256) {
    const auto context = Made<EVP_MD_CTX_free>(EVP_MD_CTX_new(), "verification");
    const ByteView content = platform::AsBytes("Norvik");
    const std::string name(platform::NameOf(hash));
    EVP_PKEY* key = X509_get0_pubkey(signer.Native());
    return EVP_DigestVerifyInit(context.get(), nullptr, EVP_get_digestbyname(name.c_str()), nullptr, key) == 1 &&
           EVP_DigestVerify(context.get(), signature.data(), signature.size(), content.data(), content.size()) == 1;
}

}  // namespace tests

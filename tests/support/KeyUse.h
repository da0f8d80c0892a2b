#pragma once
// Private keys as an operation uses them, and a user who is asked for their PINs and passphrases and remembers the
// questions.

#include <deque>

#include "platform/Keys.h"
#include "tests/support/Pki.h"

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
std::optional<platform::AcquiredKey> AcquireKey(const platform::CertificateContext& certificate);

// A signature over a small fixed content, and the verdict on it by the crypto library's own way from content to answer,
// which shares no step with ours.
platform::Bytes SignContent(const platform::PrivateKey& key,
                            platform::HashAlgorithm hash = platform::HashAlgorithm::sha256);
bool IsContentSignature(const Certificate& signer, const platform::Bytes& signature,
                        platform::HashAlgorithm hash = platform::HashAlgorithm::sha256);

}  // namespace tests

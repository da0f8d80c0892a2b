#pragma once
// Stores of a test's own that a chain is built from: nothing of the machine's or the user's takes part.

#include <initializer_list>

#include "platform/Chains.h"
#include "tests/support/Pki.h"

namespace tests {

platform::CertificateContext ContextOf(const Certificate& certificate);

struct ChainWorld {
    platform::CertStore roots = platform::CertOpenMemoryStore();
    platform::CertStore others = platform::CertOpenMemoryStore();
    platform::CertStore crls = platform::CertOpenMemoryStore();
    platform::CertStore distrusted = platform::CertOpenMemoryStore();

    platform::ChainNetwork network = {.allowed = false};  // a test that wants to be asked switches it on

    ChainWorld() = default;
    ChainWorld(const Certificate& root, std::initializer_list<Certificate> intermediates);

    void Trust(const Certificate& certificate) const;
    void Know(const Certificate& certificate) const;
    void Distrust(const Certificate& certificate) const;
    void AddCrl(const Bytes& der) const;

    // At this moment (unix seconds), with the flags of CertGetCertificateChain.
    [[nodiscard]] platform::ChainContext Chain(const Certificate& leaf, std::int64_t at = std::time(nullptr),
                                               std::uint32_t flags = 0, std::vector<std::string> usages = {}) const;
    [[nodiscard]] platform::ChainContext Chain(const platform::CertificateContext& leaf, std::int64_t at,
                                               std::uint32_t flags, std::vector<std::string> usages) const;
    [[nodiscard]] platform::ErrorCode Verdict(const Certificate& leaf, std::int64_t at = std::time(nullptr)) const;
    // The same, asking for revocation.
    [[nodiscard]] platform::ErrorCode VerdictWithCrls(const Certificate& leaf,
                                                      std::int64_t at = std::time(nullptr)) const;
    [[nodiscard]] platform::ErrorCode VerdictWithCrls(const platform::CertificateContext& leaf) const;
};

// A certification authority on a P-256 key, and somebody who is none.
CertificateSpec AuthoritySpec(const std::string& name, unsigned keyIndex);
CertificateSpec PersonSpec(const std::string& name, unsigned keyIndex);

}  // namespace tests

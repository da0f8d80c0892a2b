#pragma once
// Stores of a test's own that a chain is built from: nothing of the machine's or the user's takes part.

#include "platform/Chains.h"
#include "tests/support/Pki.h"

namespace tests {

platform::CertificateContext ContextOf(const Certificate& certificate);

// Where a chain starts.
struct Leaf {
    Leaf(const Certificate& made) : certificate(ContextOf(made)) {}
    Leaf(platform::CertificateContext found) : certificate(std::move(found)) {}
    platform::CertificateContext certificate;
};

struct ChainWorld {
    platform::CertStore roots = platform::CertOpenMemoryStore();
    platform::CertStore others = platform::CertOpenMemoryStore();
    platform::CertStore crls = platform::CertOpenMemoryStore();
    platform::CertStore distrusted = platform::CertOpenMemoryStore();

    platform::ChainNetwork network = {.allowed = false};  // a test that wants to be asked switches it on

    ChainWorld() = default;
    ChainWorld(const Certificate& root, std::initializer_list<Certificate> intermediates);

    void Trust(const Certificate& certificate) const { Add(roots, certificate); }
    void Know(const Certificate& certificate) const { Add(others, certificate); }
    void Distrust(const Certificate& certificate) const { Add(distrusted, certificate); }
    void AddCrl(const Bytes& der) const {
        platform::CertAddCRLContextToStore(crls, platform::CertCreateCRLContext(der));
    }

    // At this moment (unix seconds), with the flags of CertGetCertificateChain.
    [[nodiscard]] platform::ChainContext Chain(const Leaf& leaf, std::int64_t at = std::time(nullptr),
                                               std::uint32_t flags = 0, std::vector<std::string> usages = {}) const;
    [[nodiscard]] platform::ErrorCode Verdict(const Leaf& leaf, std::int64_t at = std::time(nullptr),
                                              std::uint32_t flags = 0) const {
        return platform::CertVerifyCertificateChainPolicy(Chain(leaf, at, flags));
    }
    // The same, asking for revocation.
    [[nodiscard]] platform::ErrorCode VerdictWithCrls(const Leaf& leaf, std::int64_t at = std::time(nullptr)) const {
        return Verdict(leaf, at, platform::CERT_CHAIN_REVOCATION_CHECK_CHAIN);
    }

  private:
    static void Add(const platform::CertStore& store, const Certificate& certificate) {
        platform::CertAddCertificateContextToStore(store, ContextOf(certificate), platform::CERT_STORE_ADD_ALWAYS);
    }
};

// A certification authority on a P-256 key, and somebody who is none.
CertificateSpec AuthoritySpec(const std::string& name, unsigned keyIndex);
CertificateSpec PersonSpec(const std::string& name, unsigned keyIndex);

}  // namespace tests

#pragma once
// Certificates, CRLs and OCSP answers held in memory: of a message, a file, a PFX.

#include <mutex>
#include <string>
#include <unordered_map>
#include <vector>

#include "platform/posix/Native.h"

namespace platform::posix {

// Whether two certificates match: issuer and serial number are equal.
bool SameIssuerAndSerial(const CertificateContext& a, const CertificateContext& b);

class MemoryStore : public CertStore::Impl {
  public:
    std::vector<CertificateContext> Certificates() override;
    std::vector<CrlContext> Crls() override;
    std::vector<Bytes> OcspAnswers() override;
    void AddOcspAnswers(const std::vector<Bytes>& answers) override;
    bool Add(const CertificateContext& certificate, std::uint32_t disposition) override;
    bool AddCrl(const CrlContext& crl) override;
    bool Remove(const CertificateContext& certificate) override;

  private:
    [[nodiscard]] CertificateContext* FindMatch(const CertificateContext& certificate);
    void Append(const CertificateContext& certificate);

    std::mutex lock_;
    std::vector<CertificateContext> certificates_;
    // Places by serial number: a list of thousands must not be searched from its start for each addition.
    std::unordered_multimap<std::string, std::size_t> bySerial_;
    std::vector<CrlContext> crls_;
    std::vector<Bytes> ocspAnswers_;
};

}  // namespace platform::posix

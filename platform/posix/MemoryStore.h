#pragma once
// Certificates and CRLs held in memory: of a message, a file, a PFX.

#include <mutex>
#include <vector>

#include "platform/posix/Native.h"

namespace platform::posix {

// Whether two certificates match: issuer and serial number are equal.
bool SameIssuerAndSerial(const CertificateContext& a, const CertificateContext& b);

class MemoryStore : public CertStore::Impl {
  public:
    std::vector<CertificateContext> Certificates() override;
    std::vector<CrlContext> Crls() override;
    bool Add(const CertificateContext& certificate, std::uint32_t disposition) override;
    bool AddCrl(const CrlContext& crl) override;
    bool Remove(const CertificateContext& certificate) override;

  private:
    std::mutex lock_;
    std::vector<CertificateContext> certificates_;
    std::vector<CrlContext> crls_;
};

}  // namespace platform::posix

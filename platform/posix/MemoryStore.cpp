#include "platform/posix/MemoryStore.h"

#include <algorithm>

namespace platform::posix {

bool SameIssuerAndSerial(const CertificateContext& a, const CertificateContext& b) {
    return a.Info().SerialNumber == b.Info().SerialNumber && a.Info().Issuer == b.Info().Issuer;
}

std::vector<CertificateContext> MemoryStore::Certificates() {
    const std::scoped_lock lock(lock_);
    return certificates_;
}

std::vector<CrlContext> MemoryStore::Crls() {
    const std::scoped_lock lock(lock_);
    return crls_;
}

bool MemoryStore::Add(const CertificateContext& certificate, std::uint32_t disposition) {
    // Kept without the store it came from: a store that held contexts pointing back to it would never be freed.
    const CertificateContext kept = certificate.FromStore({});
    const std::scoped_lock lock(lock_);
    if (disposition == CERT_STORE_ADD_ALWAYS) {
        // A listing tells each certificate once, so the same encoding is not held twice.
        if (std::ranges::find(certificates_, kept) == certificates_.end()) certificates_.push_back(kept);
        return true;
    }
    const auto match = std::ranges::find_if(
        certificates_, [&](const CertificateContext& other) { return SameIssuerAndSerial(kept, other); });
    if (match == certificates_.end()) {
        certificates_.push_back(kept);
        return true;
    }
    if (disposition == CERT_STORE_ADD_NEW) {
        SetLastError(CRYPT_E_EXISTS);
        return false;
    }
    if (disposition == CERT_STORE_ADD_REPLACE_EXISTING || kept.Info().NotBefore > match->Info().NotBefore)
        *match = kept;
    return true;
}

bool MemoryStore::AddCrl(const CrlContext& crl) {
    const std::scoped_lock lock(lock_);
    const bool held = std::ranges::any_of(
        crls_, [&](const CrlContext& other) { return std::ranges::equal(other.Encoded(), crl.Encoded()); });
    if (!held) crls_.push_back(crl);
    return true;
}

bool MemoryStore::Remove(const CertificateContext& certificate) {
    const std::scoped_lock lock(lock_);
    if (std::erase(certificates_, certificate) > 0) return true;
    SetLastError(CRYPT_E_NOT_FOUND);
    return false;
}

}  // namespace platform::posix

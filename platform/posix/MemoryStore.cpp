#include "platform/posix/MemoryStore.h"

#include <algorithm>

namespace platform::posix {
namespace {

std::string SerialOf(const CertificateContext& certificate) {
    return std::string(AsText(certificate.Info().SerialNumber));
}

}  // namespace

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

std::vector<Bytes> MemoryStore::OcspAnswers() {
    const std::scoped_lock lock(lock_);
    return ocspAnswers_;
}

void MemoryStore::AddOcspAnswers(const std::vector<Bytes>& answers) {
    const std::scoped_lock lock(lock_);
    std::ranges::copy(answers, std::back_inserter(ocspAnswers_));
}

// The first one, where several match.
CertificateContext* MemoryStore::FindMatch(const CertificateContext& certificate) {
    CertificateContext* match = nullptr;
    const auto [first, last] = bySerial_.equal_range(SerialOf(certificate));
    for (auto place = first; place != last; ++place) {
        auto* const other = &certificates_[place->second];
        if ((match == nullptr || other < match) && SameIssuerAndSerial(certificate, *other)) match = other;
    }
    return match;
}

void MemoryStore::Append(const CertificateContext& certificate) {
    bySerial_.emplace(SerialOf(certificate), certificates_.size());
    certificates_.push_back(certificate);
}

bool MemoryStore::Add(const CertificateContext& certificate, std::uint32_t disposition) {
    // Kept without the store it came from: a store that held contexts pointing back to it would never be freed.
    const CertificateContext kept = certificate.FromStore({});
    const std::scoped_lock lock(lock_);
    if (disposition == CERT_STORE_ADD_ALWAYS) {
        // A listing tells each certificate once, so the same encoding is not held twice.
        const auto [first, last] = bySerial_.equal_range(SerialOf(kept));
        const bool held =
            std::any_of(first, last, [&](const auto& place) { return certificates_[place.second] == kept; });
        if (!held) Append(kept);
        return true;
    }
    auto* const match = FindMatch(kept);
    if (match == nullptr) {
        Append(kept);
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
    if (std::erase(certificates_, certificate) == 0) {
        SetLastError(CRYPT_E_NOT_FOUND);
        return false;
    }
    bySerial_.clear();
    for (std::size_t i = 0; i < certificates_.size(); ++i)
        bySerial_.emplace(SerialOf(certificates_[i]), i);
    return true;
}

}  // namespace platform::posix

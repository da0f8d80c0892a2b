#pragma once
// What a CRL says of itself, read once for as long as the CRL is held.

#include <map>
#include <memory>
#include <mutex>
#include <optional>

#include "platform/posix/Native.h"

namespace platform::posix {

using IssuingDistPointPtr = Owned<ISSUING_DIST_POINT, ISSUING_DIST_POINT_free>;

struct CrlFacts {
    // False for what must not be used: undecodable, a field that its version cannot have, a critical extension or entry
    // extension nobody here knows, indirect.
    bool usable = false;
    bool delta = false;
    IssuingDistPointPtr distribution;  // null if the CRL has none
    FILETIME thisUpdate = 0;
    FILETIME goodUntil = 0;  // nextUpdate, else a week after thisUpdate

    [[nodiscard]] bool IsCurrentAt(FILETIME moment) const { return thisUpdate <= moment && moment < goodUntil; }
    // Whether the issuer's key verifies the CRL's signature. Remembered.
    [[nodiscard]] bool IsSignedBy(const CrlContext& crl, const CertificateContext& issuer) const;

  private:
    mutable std::mutex lock_;
    mutable std::map<std::string, bool> signedBy_;  // by SubjectPublicKeyInfo
};

// Kept in a bounded table: reading the entries of a CRL of some megabytes for every signature would be slow.
std::shared_ptr<const CrlFacts> FactsOf(const CrlContext& crl);

// Empty if the time does not decode.
std::optional<FILETIME> FileTimeOf(const ASN1_TIME* time);

}  // namespace platform::posix

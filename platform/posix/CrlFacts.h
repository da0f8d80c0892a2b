#pragma once
// What a CRL says of itself, read once for as long as the CRL is held.

#include <map>
#include <memory>
#include <mutex>
#include <optional>

#include "platform/posix/Native.h"

namespace platform::posix {

// Bits 1 to 8 of ReasonFlags (RFC 5280, 4.2.1.13).
using ReasonSet = std::uint32_t;
constexpr ReasonSet kAllReasons = 0x1FE;
// Null: all.
ReasonSet ReasonsOf(const ASN1_BIT_STRING* flags);

using IntegerPtr = Owned<ASN1_INTEGER, ASN1_INTEGER_free>;
using IssuingDistPointPtr = Owned<ISSUING_DIST_POINT, ISSUING_DIST_POINT_free>;

struct CrlFacts {
    // False for what must not be used: undecodable, a field that its version cannot have, a critical extension or entry
    // extension nobody here knows.
    bool usable = false;
    bool breakable = false;            // signed over a digest that proves nothing any more
    bool indirect = false;             // may list certificates of other issuers
    IntegerPtr number, baseNumber;     // null if absent; with a base number it is a delta
    ReasonSet reasons = kAllReasons;   // that it tells of
    IssuingDistPointPtr distribution;  // null if the CRL has none; a relative name in it is completed
    FILETIME thisUpdate = 0;
    FILETIME goodUntil = 0;  // nextUpdate, else a week after thisUpdate
    bool hasEnd = false;     // nextUpdate stands there

    [[nodiscard]] bool IsDelta() const { return baseNumber != nullptr; }
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

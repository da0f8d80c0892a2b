#pragma once
// Which part of an authority's revocations a CRL tells of (RFC 5280, 6.3.3 b and c).

#include <optional>

#include "platform/posix/CrlFacts.h"

namespace platform::posix {

// The distribution points of one certificate. The certificate outlives them.
class DistributionPoints {
  public:
    explicit DistributionPoints(const CertificateContext& certificate);

    // Told from the CRL's issuer alone, before the list is decoded: false for what is of somebody else altogether.
    [[nodiscard]] bool MayBeIn(const CrlContext& crl) const;
    // Whether the CRL comes from who may list the certificate: its issuer, or whom one of its distribution points names
    // in the issuer's place (an indirect CRL).
    [[nodiscard]] bool MayComeFrom(const CrlContext& crl, const CrlFacts& facts) const;
    // The reasons for which the certificate would be listed in it. Empty if the CRL is not about this certificate. No
    // reasons: it is, but cannot clear it, because every distribution point sends one elsewhere.
    [[nodiscard]] std::optional<ReasonSet> CoveredBy(const CrlContext& crl, const CrlFacts& facts) const;

  private:
    [[nodiscard]] bool IsOwnIssuer(const CrlContext& crl) const;
    [[nodiscard]] bool IsIssuerNamedBy(const DIST_POINT& point, const CrlContext& crl, const CrlFacts& facts) const;
    [[nodiscard]] bool KindFits(const ISSUING_DIST_POINT& distribution) const;
    [[nodiscard]] bool AllLeadElsewhere() const;

    const CertificateContext& certificate_;
    Owned<CRL_DIST_POINTS, CRL_DIST_POINTS_free> points_;  // null if it has none
};

}  // namespace platform::posix

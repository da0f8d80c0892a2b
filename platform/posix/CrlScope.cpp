#include "platform/posix/CrlScope.h"

#include <algorithm>

namespace platform::posix {
namespace {

bool SameName(const X509_NAME* a, const X509_NAME* b) {
    return a && b && X509_NAME_cmp(a, b) == 0;
}

// A directory name among general names.
bool Holds(const GENERAL_NAMES* names, const X509_NAME* wanted) {
    for (int i = 0; i < sk_GENERAL_NAME_num(names); ++i) {
        const GENERAL_NAME* name = sk_GENERAL_NAME_value(names, i);
        if (name->type == GEN_DIRNAME && SameName(name->d.directoryName, wanted)) return true;
    }
    return false;
}

bool Meet(const GENERAL_NAMES* a, const GENERAL_NAMES* b) {
    for (int i = 0; i < sk_GENERAL_NAME_num(a); ++i) {
        for (int j = 0; j < sk_GENERAL_NAME_num(b); ++j) {
            if (GENERAL_NAME_cmp(sk_GENERAL_NAME_value(a, i), sk_GENERAL_NAME_value(b, j)) == 0) return true;
        }
    }
    return false;
}

// Names relative to an issuer were completed when they were read.
constexpr int kRelative = 1;
bool Meet(const DIST_POINT_NAME& a, const DIST_POINT_NAME& b) {
    if (a.type == kRelative && b.type == kRelative) return SameName(a.dpname, b.dpname);
    if (a.type == kRelative) return Holds(b.name.fullname, a.dpname);
    if (b.type == kRelative) return Holds(a.name.fullname, b.dpname);
    return Meet(a.name.fullname, b.name.fullname);
}

// A point without a name of its own goes by that of its CRL issuer.
bool IsNamed(const DIST_POINT& point, const DIST_POINT_NAME& covered) {
    if (point.distpoint) return Meet(*point.distpoint, covered);
    if (!point.CRLissuer) return false;
    return covered.type == kRelative ? Holds(point.CRLissuer, covered.dpname)
                                     : Meet(point.CRLissuer, covered.name.fullname);
}

const X509_NAME* FirstDirectoryName(const GENERAL_NAMES* names) {
    for (int i = 0; i < sk_GENERAL_NAME_num(names); ++i) {
        const GENERAL_NAME* name = sk_GENERAL_NAME_value(names, i);
        if (name->type == GEN_DIRNAME) return name->d.directoryName;
    }
    return nullptr;
}

void CompleteName(DIST_POINT& point, const X509_NAME* certificateIssuer) {
    if (!point.distpoint || point.distpoint->type != kRelative) return;
    const X509_NAME* base = point.CRLissuer ? FirstDirectoryName(point.CRLissuer) : certificateIssuer;
    if (base) DIST_POINT_set_dpname(point.distpoint, base);
}

}  // namespace

DistributionPoints::DistributionPoints(const CertificateContext& certificate)
    : certificate_(certificate),
      points_(static_cast<CRL_DIST_POINTS*>(
          X509_get_ext_d2i(NativeOf(certificate), NID_crl_distribution_points, nullptr, nullptr))) {
    for (int i = 0; i < sk_DIST_POINT_num(points_.get()); ++i)
        CompleteName(*sk_DIST_POINT_value(points_.get(), i), X509_get_issuer_name(NativeOf(certificate)));
    DrainErrorQueue();
}

bool DistributionPoints::MayBeIn(const CrlContext& crl) const {
    if (std::ranges::equal(certificate_.Info().Issuer, crl.Issuer())) return true;
    const X509_NAME* name = IssuerNameOf(crl);
    if (SameName(X509_get_issuer_name(NativeOf(certificate_)), name)) return true;
    for (int i = 0; i < sk_DIST_POINT_num(points_.get()); ++i) {
        if (Holds(sk_DIST_POINT_value(points_.get(), i)->CRLissuer, name)) return true;
    }
    return false;
}

bool DistributionPoints::IsOwnIssuer(const CrlContext& crl) const {
    if (std::ranges::equal(certificate_.Info().Issuer, crl.Issuer())) return true;
    X509_CRL* native = NativeOf(crl);
    return native && SameName(X509_get_issuer_name(NativeOf(certificate_)), X509_CRL_get_issuer(native));
}

bool DistributionPoints::IsIssuerNamedBy(const DIST_POINT& point, const CrlContext& crl, const CrlFacts& facts) const {
    if (!point.CRLissuer) return IsOwnIssuer(crl);
    X509_CRL* native = NativeOf(crl);
    return native && Holds(point.CRLissuer, X509_CRL_get_issuer(native)) && (facts.indirect || IsOwnIssuer(crl));
}

bool DistributionPoints::MayComeFrom(const CrlContext& crl, const CrlFacts& facts) const {
    if (IsOwnIssuer(crl)) return true;
    if (!facts.indirect) return false;
    for (int i = 0; i < sk_DIST_POINT_num(points_.get()); ++i) {
        if (IsIssuerNamedBy(*sk_DIST_POINT_value(points_.get(), i), crl, facts)) return true;
    }
    return false;
}

bool DistributionPoints::KindFits(const ISSUING_DIST_POINT& distribution) const {
    if (distribution.onlyattr > 0) return false;
    const bool isAuthority = (X509_get_extension_flags(NativeOf(certificate_)) & EXFLAG_CA) != 0;
    if (distribution.onlyCA > 0 && !isAuthority) return false;
    // A certificate too old to say whether it is an authority belongs to neither part.
    const bool isUser = !isAuthority && certificate_.Info().dwVersion >= 2;
    return distribution.onlyuser <= 0 || isUser;
}

bool DistributionPoints::AllLeadElsewhere() const {
    const int count = sk_DIST_POINT_num(points_.get());
    for (int i = 0; i < count; ++i) {
        if (!sk_DIST_POINT_value(points_.get(), i)->CRLissuer) return false;
    }
    return count > 0;
}

std::optional<ReasonSet> DistributionPoints::CoveredBy(const CrlContext& crl, const CrlFacts& facts) const {
    const ISSUING_DIST_POINT* distribution = facts.distribution.get();
    if (distribution && !KindFits(*distribution)) return std::nullopt;
    const DIST_POINT_NAME* covered = distribution ? distribution->distpoint : nullptr;
    std::optional<ReasonSet> reasons;
    for (int i = 0; i < sk_DIST_POINT_num(points_.get()); ++i) {
        const DIST_POINT& point = *sk_DIST_POINT_value(points_.get(), i);
        if (!IsIssuerNamedBy(point, crl, facts) || (covered && !IsNamed(point, *covered))) continue;
        reasons = reasons.value_or(0) | (facts.reasons & ReasonsOf(point.reasons));
    }
    // A CRL of the issuer for everything needs no distribution point that leads to it.
    if (!covered && IsOwnIssuer(crl)) reasons = reasons.value_or(0) | (AllLeadElsewhere() ? 0 : facts.reasons);
    return reasons;
}

}  // namespace platform::posix

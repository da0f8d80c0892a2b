#include "platform/posix/CrlCheck.h"

#include <algorithm>
#include <array>

#include "platform/posix/CrlFacts.h"
#include "platform/posix/PathBuilder.h"
#include "platform/posix/SignatureFacts.h"

namespace platform::posix {
namespace {

using DistPointsPtr = Owned<CRL_DIST_POINTS, CRL_DIST_POINTS_free>;
using EnumeratedPtr = Owned<ASN1_ENUMERATED, ASN1_ENUMERATED_free>;

bool MaySignCrls(const CertificateContext& signer) {
    X509* native = NativeOf(signer);
    return native && (X509_get_key_usage(native) & KU_CRL_SIGN) != 0;  // without the extension all bits are set
}

bool IsCertificationAuthority(const CertificateContext& certificate) {
    return (X509_get_extension_flags(NativeOf(certificate)) & EXFLAG_CA) != 0;
}

// --- Who may have signed ---

// Who is believed as the signer of a CRL. When a signer is asked about itself, only its own issuer is: two keys must
// not vouch for each other.
enum class Believed { issuerAlone, alsoItsOtherKeys };

RevocationStatus Check(std::span<const CertificateContext> path, FILETIME at, ChainSources& sources, Believed believed);

class Signers {
  public:
    Signers(std::span<const CertificateContext> path, FILETIME at, ChainSources& sources, Believed believed)
        : path_(path), at_(at), sources_(sources), believed_(believed) {}

    bool Signed(const CrlContext& crl, const CrlFacts& facts) {
        const auto signs = [&](const CertificateContext& signer) {
            return MaySignCrls(signer) && facts.IsSignedBy(crl, signer);
        };
        if (path_.size() < 2) return false;
        if (signs(path_[1])) return true;
        if (believed_ == Believed::issuerAlone) return false;
        for (const CertificateContext& above : path_.subspan(2)) {
            if (IsIssuerName(path_[0], above) && signs(above)) return true;
        }
        for (const CertificateContext& other : sources_.IssuersOf(path_[0])) {
            if (signs(other) && IsVouchedFor(other)) return true;
        }
        return false;
    }

  private:
    // Signed by the issuer itself or by who signed the issuer. Without key usage it must be a certification authority:
    // a person who happens to bear the name must not sign for it.
    bool IsVouchedFor(const CertificateContext& signer) {
        if (CertVerifyTimeValidity(at_, signer) != 0 || sources_.IsDistrusted(signer)) return false;
        const bool hasUsage = (X509_get_extension_flags(NativeOf(signer)) & EXFLAG_KUSAGE) != 0;
        if (!hasUsage && !IsCertificationAuthority(signer)) return false;
        if (sources_.IsTrusted(signer)) return true;
        return std::ranges::any_of(path_.subspan(1, std::min<std::size_t>(2, path_.size() - 1)),
                                   [&](const CertificateContext& above) { return Vouches(above, signer); });
    }

    bool Vouches(const CertificateContext& above, const CertificateContext& signer) {
        if (!IsIssuerName(signer, above) || !IsSignedBy(signer, above)) return false;
        const std::array<CertificateContext, 2> path = {signer, above};
        return Check(path, at_, sources_, Believed::issuerAlone) != RevocationStatus::revoked;
    }

    std::span<const CertificateContext> path_;
    FILETIME at_;
    ChainSources& sources_;
    Believed believed_;
};

// --- Which part of an authority's certificates a CRL covers ---

bool SharesName(const DIST_POINT_NAME& a, const DIST_POINT_NAME& b) {
    if (a.type == 0 && b.type == 0) {
        for (int i = 0; i < sk_GENERAL_NAME_num(a.name.fullname); ++i) {
            for (int j = 0; j < sk_GENERAL_NAME_num(b.name.fullname); ++j) {
                if (GENERAL_NAME_cmp(sk_GENERAL_NAME_value(a.name.fullname, i),
                                     sk_GENERAL_NAME_value(b.name.fullname, j)) == 0)
                    return true;
            }
        }
    }
    return false;  // a name relative to the issuer matches nothing: nobody writes them, and to miss one only says
                   // unknown
}

// The certificate's own distribution points (null: it has none).
DistPointsPtr DistributionPointsOf(const CertificateContext& certificate) {
    return DistPointsPtr(static_cast<CRL_DIST_POINTS*>(
        X509_get_ext_d2i(NativeOf(certificate), NID_crl_distribution_points, nullptr, nullptr)));
}

bool IsForDistributionPoint(const CertificateContext& certificate, const DIST_POINT_NAME& covered) {
    const DistPointsPtr points = DistributionPointsOf(certificate);
    for (int i = 0; i < sk_DIST_POINT_num(points.get()); ++i) {
        const DIST_POINT* point = sk_DIST_POINT_value(points.get(), i);
        if (point->distpoint && SharesName(*point->distpoint, covered)) return true;
    }
    return false;
}

bool IsInScope(const CertificateContext& certificate, const CrlFacts& facts) {
    const ISSUING_DIST_POINT* distribution = facts.distribution.get();
    if (!distribution) return true;
    if (distribution->onlyattr > 0) return false;
    const bool isAuthority = IsCertificationAuthority(certificate);
    if (distribution->onlyCA > 0 && !isAuthority) return false;
    // A certificate too old to say whether it is an authority belongs to neither part.
    const bool isUser = !isAuthority && certificate.Info().dwVersion >= 2;
    if (distribution->onlyuser > 0 && !isUser) return false;
    return !distribution->distpoint || IsForDistributionPoint(certificate, *distribution->distpoint);
}

// Every distribution point of the certificate names another CRL issuer: its own issuer's CRL says nothing of it.
bool IsCoveredElsewhere(const CertificateContext& certificate) {
    const DistPointsPtr points = DistributionPointsOf(certificate);
    const int count = sk_DIST_POINT_num(points.get());
    for (int i = 0; i < count; ++i) {
        if (!sk_DIST_POINT_value(points.get(), i)->CRLissuer) return false;
    }
    return count > 0;
}

// --- What it says ---

enum class Entry { none, held, revoked };

Entry EntryOf(const CertificateContext& certificate, const CrlContext& crl, FILETIME at, bool isCurrent) {
    X509_REVOKED* entry = nullptr;
    const ASN1_INTEGER* serial = X509_get0_serialNumber(NativeOf(certificate));
    const int found = X509_CRL_get0_by_serial(NativeOf(crl), &entry, const_cast<ASN1_INTEGER*>(serial));
    if (found != 1) return Entry::none;  // 2: taken off the list again
    const EnumeratedPtr reason(
        static_cast<ASN1_ENUMERATED*>(X509_REVOKED_get_ext_d2i(entry, NID_crl_reason, nullptr, nullptr)));
    if (reason && ASN1_ENUMERATED_get(reason.get()) == CRL_REASON_CERTIFICATE_HOLD) return Entry::held;
    if (isCurrent) return Entry::revoked;
    const auto since = FileTimeOf(X509_REVOKED_get0_revocationDate(entry));
    return since && *since > at ? Entry::none : Entry::revoked;
}

struct Statement {
    Entry entry = Entry::none;
    bool current = false;
    bool whole = false;  // may also clear
    FILETIME thisUpdate = 0;
};

RevocationStatus Conclude(const std::vector<Statement>& statements) {
    FILETIME newest = 0;
    bool anybodyTells = false;
    for (const Statement& statement : statements) {
        if (!statement.current || !statement.whole) continue;
        anybodyTells = true;
        newest = std::max(newest, statement.thisUpdate);
    }
    for (const Statement& statement : statements) {
        if (statement.entry == Entry::none) continue;
        if (statement.current && statement.thisUpdate >= newest) return RevocationStatus::revoked;
        if (!anybodyTells && statement.entry == Entry::revoked) return RevocationStatus::revoked;
    }
    return anybodyTells ? RevocationStatus::good : RevocationStatus::unknown;
}

bool IsFromIssuerOf(const CertificateContext& certificate, const CrlContext& crl) {
    const CERT_INFO& info = certificate.Info();
    if (std::ranges::equal(info.Issuer, crl.Issuer())) return true;
    X509_CRL* native = NativeOf(crl);
    return native && X509_NAME_cmp(X509_get_issuer_name(NativeOf(certificate)), X509_CRL_get_issuer(native)) == 0;
}

RevocationStatus Check(std::span<const CertificateContext> path, FILETIME at, ChainSources& sources,
                       Believed believed) {
    const CertificateContext& certificate = path.front();
    if (!NativeOf(certificate)) return RevocationStatus::unknown;
    Signers signers(path, at, sources, believed);
    std::vector<Statement> statements;
    std::optional<bool> coveredElsewhere;
    for (const CrlContext& crl : sources.Crls()) {
        if (!IsFromIssuerOf(certificate, crl)) continue;
        const auto facts = FactsOf(crl);
        if (!facts->usable || !IsInScope(certificate, *facts) || !signers.Signed(crl, *facts)) continue;
        if (!coveredElsewhere) coveredElsewhere = IsCoveredElsewhere(certificate);

        Statement statement;
        statement.thisUpdate = facts->thisUpdate;
        statement.current = facts->IsCurrentAt(at);
        const bool someReasons = facts->distribution && facts->distribution->onlysomereasons;
        statement.whole = !facts->delta && !someReasons && !*coveredElsewhere;
        statement.entry = EntryOf(certificate, crl, at, statement.current);
        statements.push_back(statement);
    }
    return Conclude(statements);
}

}  // namespace

RevocationStatus CheckCrls(std::span<const CertificateContext> path, FILETIME at, ChainSources& sources) {
    return Check(path, at, sources, Believed::alsoItsOtherKeys);
}

bool IsCredible(const CrlContext& crl, std::span<const CertificateContext> path, FILETIME at, ChainSources& sources) {
    if (!NativeOf(path.front()) || !IsFromIssuerOf(path.front(), crl)) return false;
    const auto facts = FactsOf(crl);
    return facts->usable && facts->IsCurrentAt(at) &&
           Signers(path, at, sources, Believed::alsoItsOtherKeys).Signed(crl, *facts);
}

}  // namespace platform::posix

#include "platform/posix/CrlCheck.h"

#include <algorithm>

#include "platform/posix/CrlScope.h"
#include "platform/posix/PathBuilder.h"
#include "platform/posix/SignatureFacts.h"

namespace platform::posix {
namespace {

using EnumeratedPtr = Owned<ASN1_ENUMERATED, ASN1_ENUMERATED_free>;

bool MaySignCrls(const CertificateContext& signer) {
    X509* native = NativeOf(signer);
    return native && (X509_get_key_usage(native) & KU_CRL_SIGN) != 0;  // without the extension all bits are set
}

bool IsCertificationAuthority(const CertificateContext& certificate) {
    return (X509_get_extension_flags(NativeOf(certificate)) & EXFLAG_CA) != 0;
}

// --- Who may have signed ---

// Who is believed as the signer of a CRL. When a signer is asked about itself, only its own issuer is (two keys must
// not vouch for each other), and the signer where its certificate sends one to nobody else.
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
        if (IsNamed(path_[1], crl) && signs(path_[1])) return true;
        if (believed_ == Believed::issuerAlone)
            return !IsNamed(path_[1], crl) && IsNamed(path_[0], crl) && signs(path_[0]);
        for (const CertificateContext& above : path_.subspan(2)) {
            if (IsNamed(above, crl) && signs(above)) return true;
        }
        for (const CertificateContext& other : sources_.CertificatesNamed(crl.Issuer())) {
            if (signs(other) && IsVouchedFor(other, IsNamed(path_[1], crl) ? 2 : path_.size())) return true;
        }
        return false;
    }
    // Whom the last answer was about who would be believed but for a revocation that nobody tells, with their issuers.
    [[nodiscard]] std::vector<std::array<CertificateContext, 2>> TakeOpen() { return std::move(open_); }

  private:
    static bool IsNamed(const CertificateContext& signer, const CrlContext& crl) {
        if (std::ranges::equal(signer.Info().Subject, crl.Issuer())) return true;
        X509* native = NativeOf(signer);
        return native && X509_NAME_cmp(X509_get_subject_name(native), X509_CRL_get_issuer(NativeOf(crl))) == 0;
    }

    // Signed by one of so many authorities of this path, from the issuer upwards: under the issuer's own name only by
    // itself or by who signed it. Without key usage it must be a certification authority: a person who happens to bear
    // the name must not sign for it.
    bool IsVouchedFor(const CertificateContext& signer, std::size_t reach) {
        if (CertVerifyTimeValidity(at_, signer) != 0 || sources_.IsDistrusted(signer)) return false;
        const std::uint32_t flags = X509_get_extension_flags(NativeOf(signer));
        if ((flags & (EXFLAG_INVALID | EXFLAG_CRITICAL)) != 0 || HasBreakableKey(signer)) return false;
        const bool hasUsage = (flags & EXFLAG_KUSAGE) != 0;
        if (!hasUsage && !IsCertificationAuthority(signer)) return false;
        if (sources_.IsTrusted(signer)) return true;
        return std::ranges::any_of(path_.subspan(1, std::min(reach, path_.size() - 1)),
                                   [&](const CertificateContext& above) { return Vouches(above, signer); });
    }

    bool Vouches(const CertificateContext& above, const CertificateContext& signer) {
        if (!IsIssuerName(signer, above) || HasBreakableDigest(signer) || !IsSignedBy(signer, above)) return false;
        const std::array<CertificateContext, 2> path = {signer, above};
        const RevocationStatus status = Check(path, at_, sources_, Believed::issuerAlone);
        if (status == RevocationStatus::unknown) open_.push_back(path);
        return status == RevocationStatus::good;
    }

    std::span<const CertificateContext> path_;
    FILETIME at_;
    ChainSources& sources_;
    Believed believed_;
    std::vector<std::array<CertificateContext, 2>> open_;
};

// --- What it says ---

enum class Entry { none, removed, held, revoked };

// Of an indirect CRL, the entry counts that names the certificate's issuer.
Entry EntryOf(const CertificateContext& certificate, const CrlContext& crl, FILETIME at, bool isCurrent) {
    X509_REVOKED* entry = nullptr;
    const int found = X509_CRL_get0_by_cert(NativeOf(crl), &entry, NativeOf(certificate));
    if (found == 2) return Entry::removed;  // taken off the list again
    if (found != 1) return Entry::none;
    const EnumeratedPtr reason(
        static_cast<ASN1_ENUMERATED*>(X509_REVOKED_get_ext_d2i(entry, NID_crl_reason, nullptr, nullptr)));
    if (reason && ASN1_ENUMERATED_get(reason.get()) == CRL_REASON_CERTIFICATE_HOLD) return Entry::held;
    if (isCurrent) return Entry::revoked;
    const auto since = FileTimeOf(X509_REVOKED_get0_revocationDate(entry));
    return since && *since > at ? Entry::none : Entry::revoked;
}

struct Statement {
    CrlContext crl;
    std::shared_ptr<const CrlFacts> facts;
    Entry entry = Entry::none;
    bool current = false;
    ReasonSet reasons = 0;  // that it may clear of
    FILETIME thisUpdate = 0;

    [[nodiscard]] bool IsListed() const { return entry == Entry::held || entry == Entry::revoked; }
    [[nodiscard]] bool IsBelieved() const { return current && !facts->breakable; }
    [[nodiscard]] bool MayClear() const { return IsBelieved() && !facts->IsDelta(); }
};

bool HasSameScope(const CrlContext& a, const CrlContext& b) {
    const auto scope = [](const CrlContext& crl) -> Bytes {
        X509_CRL* native = NativeOf(crl);
        const int at = X509_CRL_get_ext_by_NID(native, NID_issuing_distribution_point, -1);
        if (at < 0) return {};
        const ASN1_OCTET_STRING* value = X509_EXTENSION_get_data(X509_CRL_get_ext(native, at));
        return {ASN1_STRING_get0_data(value), ASN1_STRING_get0_data(value) + ASN1_STRING_length(value)};
    };
    return X509_NAME_cmp(X509_CRL_get_issuer(NativeOf(a)), X509_CRL_get_issuer(NativeOf(b))) == 0 &&
           scope(a) == scope(b);
}

// RFC 5280, 5.2.4: the delta continues this CRL, or one before it.
bool Continues(const Statement& delta, const Statement& base) {
    if (!delta.IsBelieved() || !delta.facts->IsDelta() || !base.MayClear()) return false;
    const CrlFacts &of = *delta.facts, &at = *base.facts;
    return of.number && at.number && ASN1_INTEGER_cmp(at.number.get(), of.baseNumber.get()) >= 0 &&
           ASN1_INTEGER_cmp(at.number.get(), of.number.get()) < 0 && HasSameScope(delta.crl, base.crl);
}

// A hold that a delta has ended is gone from the CRL that it continues. Other entries of deltas speak for themselves.
void ApplyDeltas(std::vector<Statement>& statements) {
    for (Statement& base : statements) {
        const Statement* newest = nullptr;
        for (const Statement& delta : statements) {
            if (Continues(delta, base) && (!newest || newest->thisUpdate < delta.thisUpdate)) newest = &delta;
        }
        if (newest && newest->entry == Entry::removed && base.entry == Entry::held) base.entry = Entry::removed;
    }
}

RevocationStatus Conclude(const std::vector<Statement>& statements) {
    ReasonSet told = 0;
    for (const Statement& statement : statements) {
        if (statement.MayClear()) told |= statement.reasons;
    }
    const auto isOverruled = [&](const Statement& listing) {
        return std::ranges::any_of(statements, [&](const Statement& other) {
            return other.MayClear() && other.thisUpdate > listing.thisUpdate && !other.IsListed() &&
                   (other.reasons & listing.facts->reasons) == listing.facts->reasons;
        });
    };
    for (const Statement& statement : statements) {
        if (!statement.IsListed()) continue;
        if (statement.current && !isOverruled(statement)) return RevocationStatus::revoked;
        if (told != kAllReasons && statement.entry == Entry::revoked) return RevocationStatus::revoked;
    }
    return told == kAllReasons ? RevocationStatus::good : RevocationStatus::unknown;
}

RevocationStatus Check(std::span<const CertificateContext> path, FILETIME at, ChainSources& sources,
                       Believed believed) {
    const CertificateContext& certificate = path.front();
    if (!NativeOf(certificate)) return RevocationStatus::unknown;
    Signers signers(path, at, sources, believed);
    const DistributionPoints points(certificate);
    std::vector<Statement> statements;
    for (const CrlContext& crl : sources.Crls()) {
        if (!points.MayBeIn(crl)) continue;
        auto facts = FactsOf(crl);
        if (!facts->usable || !points.MayComeFrom(crl, *facts)) continue;
        const auto reasons = points.CoveredBy(crl, *facts);
        if (!reasons || !signers.Signed(crl, *facts)) continue;

        Statement statement{.crl = crl, .facts = std::move(facts), .reasons = *reasons};
        statement.thisUpdate = statement.facts->thisUpdate;
        statement.current = statement.facts->IsCurrentAt(at);
        statement.entry = EntryOf(certificate, crl, at, statement.current);
        statements.push_back(std::move(statement));
    }
    ApplyDeltas(statements);
    return Conclude(statements);
}

}  // namespace

RevocationStatus CheckCrls(std::span<const CertificateContext> path, FILETIME at, ChainSources& sources) {
    return Check(path, at, sources, Believed::alsoItsOtherKeys);
}

Credibility CredibilityOf(const CrlContext& crl, std::span<const CertificateContext> path, FILETIME at,
                          ChainSources& sources) {
    if (!NativeOf(path.front())) return {};
    const auto facts = FactsOf(crl);
    if (!facts->usable || !facts->IsCurrentAt(at) || !DistributionPoints(path.front()).MayComeFrom(crl, *facts))
        return {};
    Signers signers(path, at, sources, Believed::alsoItsOtherKeys);
    if (signers.Signed(crl, *facts)) return {.credible = true};
    return {.openSigners = signers.TakeOpen()};
}

}  // namespace platform::posix

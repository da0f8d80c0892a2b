#include "platform/posix/PathBuilder.h"

#include <algorithm>
#include <deque>

#include "platform/posix/Native.h"
#include "platform/posix/SignatureFacts.h"

namespace platform::posix {
namespace {

constexpr std::size_t kMaxDepth = 16;
constexpr std::size_t kMaxSignatureChecks = 1000;
constexpr std::size_t kMaxPaths = 64;

// Whether the certificate's authority key identifier speaks against this issuer. A hint: identifiers are computed in
// more than one way, and some are wrong.
bool AuthorityKeyIdDiffers(const CertificateContext& certificate, const CertificateContext& issuer) {
    X509* child = NativeOf(certificate);
    X509* parent = NativeOf(issuer);
    if (!child || !parent) return true;
    const ASN1_OCTET_STRING* wanted = X509_get0_authority_key_id(child);
    const ASN1_OCTET_STRING* actual = X509_get0_subject_key_id(parent);
    if (wanted && actual && ASN1_OCTET_STRING_cmp(wanted, actual) != 0) return true;
    const ASN1_INTEGER* serial = X509_get0_authority_serial(child);
    return serial && ASN1_INTEGER_cmp(serial, X509_get0_serialNumber(parent)) != 0;
}

// The same authority again, perhaps by another certificate of the same key: going on would only turn round.
bool IsSameAuthority(const CertificateContext& a, const CertificateContext& b) {
    return a == b ||
           (a.Info().SubjectPublicKeyInfo == b.Info().SubjectPublicKeyInfo && a.Info().Subject == b.Info().Subject);
}

class Builder {
  public:
    explicit Builder(ChainSources& sources) : sources_(sources) {}

    std::vector<CandidatePath> Run(const CertificateContext& leaf) {
        open_.push_back({.elements = {leaf}});
        while (!open_.empty() && done_.size() < kMaxPaths) {
            CandidatePath path = std::move(open_.front());
            open_.pop_front();
            Extend(std::move(path));
        }
        if (open_.size() + done_.size() > kMaxPaths || checks_ >= kMaxSignatureChecks)
            LogHost("A chain has more possible paths than are looked at: the rest was left out.");
        return std::move(done_);
    }

  private:
    struct Issuers {
        std::vector<CertificateContext> proven;   // verify the signature
        std::vector<CertificateContext> claimed;  // do not, but nothing else speaks against them
        bool onlyInPath = false;                  // the proven ones were in the path already
    };

    bool Verifies(const CertificateContext& certificate, const CertificateContext& issuer) {
        if (checks_ >= kMaxSignatureChecks) return false;
        ++checks_;
        return IsSignedBy(certificate, issuer);
    }

    // The order tells which are looked at when the bounds cut; it does not depend on how stores list them.
    std::vector<CertificateContext> NamedIssuers(const CertificateContext& certificate) {
        std::vector<CertificateContext> named = sources_.IssuersOf(certificate);
        if (named.size() < 2) return named;
        const auto rank = [&](const CertificateContext& issuer) {
            return std::pair(!sources_.IsTrusted(issuer), AuthorityKeyIdDiffers(certificate, issuer));
        };
        std::vector<std::pair<std::pair<bool, bool>, CertificateContext>> ranked;
        for (CertificateContext& issuer : named)
            ranked.emplace_back(rank(issuer), std::move(issuer));
        std::ranges::sort(ranked, [](const auto& a, const auto& b) {
            if (a.first != b.first) return a.first < b.first;
            return std::ranges::lexicographical_compare(a.second.Encoded(), b.second.Encoded());
        });
        std::ranges::transform(ranked, named.begin(), [](auto& entry) { return std::move(entry.second); });
        return named;
    }

    Issuers FindIssuers(const CandidatePath& path) {
        const CertificateContext& certificate = path.elements.back();
        Issuers issuers;
        for (const CertificateContext& issuer : NamedIssuers(certificate)) {
            const bool inPath = std::ranges::any_of(
                path.elements, [&](const CertificateContext& element) { return IsSameAuthority(element, issuer); });
            const bool proven = Verifies(certificate, issuer);
            if (proven && inPath) issuers.onlyInPath = true;
            if (inPath) continue;
            if (proven) {
                issuers.proven.push_back(issuer);
            } else if (!AuthorityKeyIdDiffers(certificate, issuer)) {
                issuers.claimed.push_back(issuer);
            }
        }
        return issuers;
    }

    void Extend(CandidatePath path) {
        const CertificateContext& last = path.elements.back();
        const bool selfIssued = IsSelfIssued(last);
        if (sources_.IsTrusted(last)) return EndTrusted(std::move(path), selfIssued);
        if (selfIssued && Verifies(last, last)) {
            path.selfSigned = true;
            return Finish(std::move(path), false);
        }
        if (path.elements.size() >= kMaxDepth) return Finish(std::move(path), false);

        const Issuers issuers = FindIssuers(path);
        for (const CertificateContext& issuer : issuers.proven)
            Push(path, issuer, false);
        if (!issuers.proven.empty()) return;
        if (issuers.onlyInPath) {
            path.cyclic = true;
            return Finish(std::move(path), false);
        }
        for (const CertificateContext& issuer : issuers.claimed)
            Push(path, issuer, true);
        if (!issuers.claimed.empty()) return;
        // Says of itself that it is a root, and no other issuer is known: a root with a broken signature.
        path.selfSigned = selfIssued && !AuthorityKeyIdDiffers(last, last);
        const bool brokenRoot = path.selfSigned;
        Finish(std::move(path), brokenRoot);
    }

    // Whoever put it among the roots vouches for name and key: its own signature is not looked at.
    void EndTrusted(CandidatePath path, bool selfIssued) {
        const CertificateContext& last = path.elements.back();
        path.trusted = true;
        path.selfSigned = selfIssued && !AuthorityKeyIdDiffers(last, last);
        if (!path.selfSigned) path.anchorIssuers = FindIssuers(path).proven;
        Finish(std::move(path), false);
    }

    void Push(const CandidatePath& path, const CertificateContext& issuer, bool signatureWrong) {
        if (open_.size() >= kMaxSignatureChecks) return;
        CandidatePath longer = path;
        longer.elements.push_back(issuer);
        longer.signatureWrong.push_back(signatureWrong);
        open_.push_back(std::move(longer));
    }

    void Finish(CandidatePath path, bool signatureWrong) {
        path.signatureWrong.push_back(signatureWrong);
        done_.push_back(std::move(path));
    }

    ChainSources& sources_;
    std::deque<CandidatePath> open_;
    std::vector<CandidatePath> done_;
    std::size_t checks_ = 0;
};

}  // namespace

bool IsIssuerName(const CertificateContext& certificate, const CertificateContext& issuer) {
    if (certificate.Info().Issuer == issuer.Info().Subject) return true;
    X509* child = NativeOf(certificate);
    X509* parent = NativeOf(issuer);
    return child && parent && X509_NAME_cmp(X509_get_issuer_name(child), X509_get_subject_name(parent)) == 0;
}

bool IsSelfIssued(const CertificateContext& certificate) {
    return IsIssuerName(certificate, certificate);
}

std::vector<CandidatePath> EnumeratePaths(const CertificateContext& leaf, ChainSources& sources) {
    return Builder(sources).Run(leaf);
}

}  // namespace platform::posix

#include "platform/posix/PathBuilder.h"

#include <algorithm>
#include <deque>
#include <map>
#include <set>

#include "platform/posix/Native.h"
#include "platform/posix/SignatureFacts.h"

namespace platform::posix {
namespace {

constexpr std::size_t kMaxDepth = 16;
constexpr std::size_t kMaxSignatureChecks = 1000;
constexpr std::size_t kMaxComplete = 64;
constexpr std::size_t kMaxIncomplete = 8;
constexpr std::size_t kMaxSteps = 4000;

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
        first_.push_back({.elements = {leaf}});
        for (std::size_t step = 0; step < kMaxSteps && complete_.size() < kMaxComplete; ++step) {
            std::deque<CandidatePath>& open = first_.empty() ? again_ : first_;
            if (open.empty()) break;
            CandidatePath path = std::move(open.front());
            open.pop_front();
            Extend(std::move(path));
        }
        if (!first_.empty() || !again_.empty() || checks_ >= kMaxSignatureChecks)
            LogHost("A chain has more possible paths than are looked at: the rest was left out.");
        // A mesh in which no path came to its end within the bounds: one that stops on the way stands for all.
        if (complete_.empty() && incomplete_.empty())
            Finish(std::move(first_.empty() ? again_.front() : first_.front()), false);
        std::ranges::move(incomplete_, std::back_inserter(complete_));
        return std::move(complete_);
    }

  private:
    struct Issuers {
        std::vector<CertificateContext> proven;   // verify the signature
        std::vector<CertificateContext> claimed;  // do not, but nothing else speaks against them
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
        ranked.reserve(named.size());
        for (CertificateContext& issuer : named)
            ranked.emplace_back(rank(issuer), std::move(issuer));
        std::ranges::sort(ranked, [](const auto& a, const auto& b) {
            if (a.first != b.first) return a.first < b.first;
            return std::ranges::lexicographical_compare(a.second.Encoded(), b.second.Encoded());
        });
        std::ranges::transform(ranked, named.begin(), [](auto& entry) { return std::move(entry.second); });
        return named;
    }

    // Found once for each certificate, however many paths lead there; certificates of one key share one check.
    const Issuers& IssuersOf(const CertificateContext& certificate) {
        const auto [entry, isNew] = issuers_.try_emplace(AsText(certificate.Encoded()));
        Issuers& issuers = entry->second;
        if (!isNew) return issuers;
        std::map<std::string_view, bool> keys;
        for (const CertificateContext& issuer : NamedIssuers(certificate)) {
            const auto [key, unseen] = keys.try_emplace(AsText(issuer.Info().SubjectPublicKeyInfo));
            if (unseen) key->second = Verifies(certificate, issuer);
            if (key->second) {
                issuers.proven.push_back(issuer);
            } else if (!AuthorityKeyIdDiffers(certificate, issuer)) {
                issuers.claimed.push_back(issuer);
            }
        }
        return issuers;
    }

    // Those that are not in the path already.
    static std::vector<CertificateContext> NewTo(const CandidatePath& path,
                                                 const std::vector<CertificateContext>& issuers) {
        std::vector<CertificateContext> fresh;
        std::ranges::copy_if(issuers, std::back_inserter(fresh), [&](const CertificateContext& issuer) {
            return std::ranges::none_of(path.elements,
                                        [&](const auto& element) { return IsSameAuthority(element, issuer); });
        });
        return fresh;
    }

    void Extend(CandidatePath path) {
        const CertificateContext last = path.elements.back();
        const bool selfIssued = IsSelfIssued(last);
        if (sources_.IsTrusted(last)) return EndTrusted(std::move(path), selfIssued);
        if (selfIssued && IsSignedBy(last, last)) {
            path.selfSigned = true;
            return Finish(std::move(path), false);
        }
        if (path.elements.size() >= kMaxDepth) return Finish(std::move(path), false);

        const Issuers& issuers = IssuersOf(last);
        if (!issuers.proven.empty()) {
            const std::vector<CertificateContext> fresh = NewTo(path, issuers.proven);
            for (const CertificateContext& issuer : fresh)
                Push(path, issuer, false);
            path.cyclic = fresh.empty();
            if (path.cyclic) Finish(std::move(path), false);
            return;
        }
        const std::vector<CertificateContext> claimed = NewTo(path, issuers.claimed);
        for (const CertificateContext& issuer : claimed)
            Push(path, issuer, true);
        if (!claimed.empty()) return;
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
        if (!path.selfSigned) path.anchorIssuers = NewTo(path, IssuersOf(last).proven);
        Finish(std::move(path), false);
    }

    // Certificates that no path has reached yet go first: in a mesh each is then tried on its shortest way before the
    // detours are.
    void Push(const CandidatePath& path, const CertificateContext& issuer, bool signatureWrong) {
        if (first_.size() + again_.size() >= kMaxSteps) return;
        CandidatePath longer = path;
        longer.elements.push_back(issuer);
        longer.signatureWrong.push_back(signatureWrong);
        const bool unseen = seen_.insert(AsText(issuer.Encoded())).second;
        (unseen ? first_ : again_).push_back(std::move(longer));
    }

    void Finish(CandidatePath path, bool signatureWrong) {
        path.signatureWrong.push_back(signatureWrong);
        if (path.IsComplete()) {
            complete_.push_back(std::move(path));
        } else if (incomplete_.size() < kMaxIncomplete) {
            incomplete_.push_back(std::move(path));
        }
    }

    ChainSources& sources_;
    std::deque<CandidatePath> first_, again_;
    std::vector<CandidatePath> complete_, incomplete_;
    // Keys are views into certificates that the sources hold meanwhile.
    std::map<std::string_view, Issuers> issuers_;
    std::set<std::string_view> seen_;
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

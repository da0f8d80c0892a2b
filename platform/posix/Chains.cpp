#include "platform/Chains.h"

#include <algorithm>

#include "platform/System.h"
#include "platform/posix/IssuerSearch.h"
#include "platform/posix/PathJudge.h"
#include "platform/posix/RevocationService.h"

namespace platform {
namespace {

using posix::CandidatePath;
using posix::ChainSources;

struct JudgedPath {
    CandidatePath path;
    ChainContext chain;
    bool asked = false;  // for revocation, over the network

    // A name without the signature leads nowhere.
    [[nodiscard]] bool EndsTrusted() const {
        return path.trusted && std::ranges::find(path.signatureWrong, true) == path.signatureWrong.end();
    }
    [[nodiscard]] bool IsGood() const {
        constexpr std::uint32_t kUnsettled = CERT_TRUST_REVOCATION_STATUS_UNKNOWN | CERT_TRUST_IS_OFFLINE_REVOCATION;
        return path.trusted && (chain.dwErrorStatus & ~kUnsettled) == 0;
    }
    // An answer could still make it good, or revoked.
    [[nodiscard]] bool IsWorthAsking() const {
        constexpr std::uint32_t kOpen = CERT_TRUST_REVOCATION_STATUS_UNKNOWN;
        return !asked && EndsTrusted() && (chain.dwErrorStatus & kOpen) != 0 &&
               posix::SeverityOf(chain.dwErrorStatus) > posix::SeverityOf(CERT_TRUST_IS_REVOKED);
    }
};

bool EncodingsLess(const ChainContext& a, const ChainContext& b) {
    const auto less = [](const CERT_CHAIN_ELEMENT& x, const CERT_CHAIN_ELEMENT& y) {
        return std::ranges::lexicographical_compare(x.certificate.Encoded(), y.certificate.Encoded());
    };
    return std::ranges::lexicographical_compare(a.elements, b.elements, less);
}

// A trusted root first, then any root, then the milder faults, then the shorter path. The last word have the bytes, so
// that the answer does not hang on the order in which stores list their certificates.
bool IsBetter(const JudgedPath& a, const JudgedPath& b) {
    if (a.EndsTrusted() != b.EndsTrusted()) return a.EndsTrusted();
    if (a.path.IsComplete() != b.path.IsComplete()) return a.path.IsComplete();
    const std::size_t severityA = posix::SeverityOf(a.chain.dwErrorStatus);
    const std::size_t severityB = posix::SeverityOf(b.chain.dwErrorStatus);
    if (severityA != severityB) return severityA > severityB;
    if (a.chain.elements.size() != b.chain.elements.size()) return a.chain.elements.size() < b.chain.elements.size();
    return EncodingsLess(a.chain, b.chain);
}

// What a question is asked with. Without a service nobody asks for revocation, without a search stores alone know
// issuers.
struct Asking {
    posix::Judgement judgement;
    ChainSources& sources;
    posix::RevocationService* revocation = nullptr;
    posix::IssuerSearch* search = nullptr;
};

const JudgedPath& BestOf(const std::vector<JudgedPath>& paths) {
    return *std::ranges::min_element(paths, IsBetter);
}

std::vector<JudgedPath> JudgeAll(const CertificateContext& leaf, const Asking& asking) {
    std::vector<JudgedPath> judged;
    for (CandidatePath& path : posix::EnumeratePaths(leaf, asking.sources)) {
        ChainContext chain = posix::JudgePath(path, asking.judgement, asking.sources);
        if (asking.revocation) posix::JudgeRevocation(path, chain, *asking.revocation, posix::Reach::here);
        judged.push_back({std::move(path), std::move(chain)});
    }
    return judged;
}

// Over the network the best path is asked first, and the next one only if that does not come out clean. Paths that
// would not count anyway are left alone: what is not trusted does not decide whom this machine talks to.
void AskNetwork(std::vector<JudgedPath>& paths, posix::RevocationService& revocation) {
    while (BestOf(paths).chain.dwErrorStatus != 0) {
        JudgedPath* next = nullptr;
        for (JudgedPath& path : paths) {
            if (path.IsWorthAsking() && (!next || IsBetter(path, *next))) next = &path;
        }
        if (!next) return;
        next->asked = true;
        posix::JudgeRevocation(next->path, next->chain, revocation, posix::Reach::network);
    }
}

// Each tier adds to those before it, so its answer replaces theirs: a certificate that seemed to have a wrong
// signature, or no issuer, may find the right one.
JudgedPath BestPath(const CertificateContext& leaf, const Asking& asking) {
    for (;;) {
        std::vector<JudgedPath> paths = JudgeAll(leaf, asking);
        if (asking.revocation) AskNetwork(paths, *asking.revocation);
        const JudgedPath& best = BestOf(paths);
        if (best.IsGood()) return best;
        if (asking.sources.OpenNextTier(!best.path.IsComplete())) continue;
        const bool mayFind = asking.search && !best.path.IsComplete() && !best.path.cyclic;
        if (!mayFind || !asking.search->FindIssuerOf(best.path.elements.back())) return best;
    }
}

}  // namespace

std::optional<ChainContext> CertGetCertificateChain(const CertificateContext& certificate,
                                                    const ChainParameters& parameters) {
    if (!certificate) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return std::nullopt;
    }
    const FILETIME at = parameters.time.value_or(GetSystemTimeAsFileTime());
    ChainSources sources(certificate, parameters);
    posix::Exchanges exchanges(parameters.network);
    posix::RevocationService revocation(at, sources, exchanges);
    const bool asks = (parameters.flags & CERT_CHAIN_REVOCATION_CHECK_CHAIN) != 0;
    posix::IssuerSearch search(sources, exchanges);
    return BestPath(certificate, {{at, parameters.requestedUsage}, sources, asks ? &revocation : nullptr, &search})
        .chain;
}

std::vector<CertificateContext> BuildIssuerPath(const CertificateContext& leaf) {
    if (!leaf) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return {};
    }
    ChainSources sources(leaf);
    return BestPath(leaf, {{GetSystemTimeAsFileTime(), {}}, sources}).path.elements;
}

ErrorCode CertVerifyRevocation(const CertificateContext& certificate) {
    if (!certificate) return ERROR_INVALID_PARAMETER;
    const FILETIME now = GetSystemTimeAsFileTime();
    ChainSources sources(certificate, {});
    posix::Exchanges exchanges({.allExchanges = std::chrono::seconds(20)});
    posix::RevocationService revocation(now, sources, exchanges);
    posix::IssuerSearch search(sources, exchanges);
    const JudgedPath best = BestPath(certificate, {{now, {}}, sources, nullptr, &search});
    const auto reach = best.EndsTrusted() ? posix::Reach::network : posix::Reach::here;
    const posix::RevocationFinding finding = revocation.Of(best.path, 0, reach);
    switch (finding.status) {
        case posix::RevocationStatus::good:
            return ERROR_SUCCESS;
        case posix::RevocationStatus::revoked:
            return CRYPT_E_REVOKED;
        case posix::RevocationStatus::unknown:
            break;
    }
    return finding.silent ? CRYPT_E_REVOCATION_OFFLINE : CRYPT_E_NO_REVOCATION_CHECK;
}

}  // namespace platform

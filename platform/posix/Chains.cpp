#include "platform/Chains.h"

#include <algorithm>

#include "platform/System.h"
#include "platform/posix/PathJudge.h"

namespace platform {
namespace {

using posix::CandidatePath;
using posix::ChainSources;

struct JudgedPath {
    CandidatePath path;
    ChainContext chain;

    // A name without the signature leads nowhere.
    [[nodiscard]] bool EndsTrusted() const {
        return path.trusted && std::ranges::find(path.signatureWrong, true) == path.signatureWrong.end();
    }
    [[nodiscard]] bool IsGood() const {
        constexpr std::uint32_t kUnsettled = CERT_TRUST_REVOCATION_STATUS_UNKNOWN | CERT_TRUST_IS_OFFLINE_REVOCATION;
        return path.trusted && (chain.dwErrorStatus & ~kUnsettled) == 0;
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

// Each tier adds to those before it, so its answer replaces theirs: a certificate that seemed to have a wrong
// signature, or no issuer, may find the right one.
JudgedPath BestPath(const CertificateContext& leaf, const posix::Judgement& judgement, ChainSources& sources) {
    for (;;) {
        std::optional<JudgedPath> best;
        for (CandidatePath& path : posix::EnumeratePaths(leaf, sources)) {
            ChainContext chain = posix::JudgePath(path, judgement, sources);
            JudgedPath judged{std::move(path), std::move(chain)};
            if (!best || IsBetter(judged, *best)) best = std::move(judged);
        }
        if (best->IsGood() || !sources.OpenNextTier(!best->path.IsComplete())) return std::move(*best);
    }
}

}  // namespace

std::optional<ChainContext> CertGetCertificateChain(const CertificateContext& certificate,
                                                    const ChainParameters& parameters) {
    if (!certificate) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return std::nullopt;
    }
    const posix::Judgement judgement{
        .at = parameters.time.value_or(GetSystemTimeAsFileTime()),
        .askRevocation = (parameters.flags & CERT_CHAIN_REVOCATION_CHECK_CHAIN) != 0,
        .usages = parameters.requestedUsage,
    };
    ChainSources sources(certificate, parameters);
    return BestPath(certificate, judgement, sources).chain;
}

std::vector<CertificateContext> BuildIssuerPath(const CertificateContext& leaf) {
    if (!leaf) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return {};
    }
    ChainSources sources(leaf);
    return BestPath(leaf, {.at = GetSystemTimeAsFileTime(), .askRevocation = false, .usages = {}}, sources)
        .path.elements;
}

ErrorCode CertVerifyRevocation(const CertificateContext& certificate) {
    if (!certificate) return ERROR_INVALID_PARAMETER;
    const FILETIME now = GetSystemTimeAsFileTime();
    ChainSources sources(certificate, {});
    const CandidatePath path = BestPath(certificate, {.at = now, .askRevocation = false, .usages = {}}, sources).path;
    switch (posix::RevocationOf(path, 0, now, sources)) {
        case posix::RevocationStatus::good:
            return ERROR_SUCCESS;
        case posix::RevocationStatus::revoked:
            return CRYPT_E_REVOKED;
        case posix::RevocationStatus::unknown:
            break;
    }
    return CRYPT_E_NO_REVOCATION_CHECK;
}

}  // namespace platform

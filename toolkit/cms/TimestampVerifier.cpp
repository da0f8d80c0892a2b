#include "toolkit/cms/TimestampVerifier.h"

#include <algorithm>

#include "toolkit/cms/Message.h"
#include "toolkit/cms/MessageVerification.h"

namespace toolkit::cms {

namespace {

using platform::Bytes;
using platform::ByteView;

constexpr std::string_view kTimeStampingUsage = "1.3.6.1.5.5.7.3.8";
constexpr std::size_t kLargestTstInfo = std::size_t{1} << 20;

// RFC 3161 2.3. Told in the log only: whether the authority is to be trusted is asked of its certificate elsewhere.
void NoteUsage(const Findings& token, OperationLog& log) {
    if (token.signers.empty() || !token.signers.front().certificate) return;
    const auto usages = platform::CertGetEnhancedKeyUsage(token.signers.front().certificate);
    const bool right =
        usages && std::find(usages->begin(), usages->end(), std::string(kTimeStampingUsage)) != usages->end();
    if (!right) log.Line("The certificate of the timestamp's signer is not made for time stamping.");
}

void CheckImprint(const Bytes& signatureValue, TimestampFindings& findings, OperationLog& log) {
    findings.imprintHash = DigestName(findings.info->imprintAlgorithm.oid);
    const auto hash = platform::HashFromOid(findings.info->imprintAlgorithm.oid);
    const Bytes digest = hash ? platform::Digest(*hash, signatureValue) : Bytes{};
    findings.digestMatches = !digest.empty() && digest == findings.info->imprint;
    if (!findings.digestMatches) log.Line("imprint hash does not match the hash of the signature.");
}

}  // namespace

TimestampFindings VerifyTimestamp(ByteView token, const Bytes& signatureValue, const CertificatePool& pool,
                                  OperationLog& log) {
    TimestampFindings findings;
    if (signatureValue.empty()) {
        log.Line("Unable to get the signer's signature bytes.");
        return findings;
    }
    platform::MemorySource source(token);
    Bytes content;
    const ContentSink collect = [&](ByteView piece) {
        if (piece.size() > kLargestTstInfo - content.size()) return false;
        content.insert(content.end(), piece.begin(), piece.end());
        return true;
    };
    const VerifyOptions options;
    auto outcome = VerifyMessage({.message = source, .options = options, .sink = collect, .outerPool = &pool}, log);
    if (outcome.kind != MessageKind::signedData) {
        if (outcome.kind == MessageKind::otherMessage) log.Line("The timestamp token is not a CMS SignedData.");
        return findings;
    }
    findings.verify = std::make_unique<Findings>(std::move(outcome.findings));
    const bool isToken = findings.verify->contentType == oid::kTstInfo;
    findings.info = isToken ? platform::ReadTstInfo(content) : std::nullopt;
    if (!findings.info) {
        log.Line("The timestamp token holds no TSTInfo.");
        return findings;
    }
    // RFC 3161 2.4.2: the authority's signature and no other.
    findings.signatureVerified = findings.verify->valid && findings.verify->signers.size() == 1;
    if (!findings.signatureVerified) log.Line("The timestamp token's signature does not verify.");
    CheckImprint(signatureValue, findings, log);
    NoteUsage(*findings.verify, log);
    findings.validated = findings.signatureVerified && findings.digestMatches;
    return findings;
}

}  // namespace toolkit::cms

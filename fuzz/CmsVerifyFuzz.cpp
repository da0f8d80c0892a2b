// Verification of any bytes, as an attached message in binary or text and as a detached signature. The seeds hold
// signed messages, so a verdict may be good; what must hold is that no content is promised without a passed signer.

#include <cstdlib>

#include "toolkit/cms/FindingsJson.h"
#include "toolkit/cms/MessageVerifier.h"
#include "toolkit/cms/TextMessage.h"

namespace {

void Check(const toolkit::cms::Findings& findings) {
    if (findings.valid && findings.signers.empty()) std::abort();
    for (const auto& signer : findings.signers) {
        const bool sound = signer.digestMatches && signer.signatureGood && signer.certificate;
        if ((findings.valid || signer.passed) && !sound) std::abort();
    }
    (void)toolkit::cms::ToJson(findings);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const platform::ByteView bytes(data, size);
    platform::MemorySource source(bytes);
    const auto decoded = toolkit::cms::LooksLikeText(source) ? toolkit::cms::DecodeText(source) : nullptr;
    platform::ByteSource& message = decoded ? *decoded : source;
    toolkit::OperationLog log;
    Check(toolkit::cms::VerifyAttached(message, {.validateTimestamps = true}, log));
    platform::MemorySource content(platform::AsBytes("content"));
    Check(toolkit::cms::VerifyDetached(message, content, {}, log));
    return 0;
}

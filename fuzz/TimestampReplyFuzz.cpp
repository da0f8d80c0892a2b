// Any bytes as the answer of a timestamp authority, and the token that it may hold.

#include <cstdlib>

#include "platform/formats/TstInfo.h"
#include "toolkit/cms/MessageVerifier.h"
#include "toolkit/cms/TimestampReply.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const auto reply = toolkit::cms::DecodeTimestampReply({data, size});
    if (!reply) return 0;
    if (toolkit::cms::PkiStatusName(reply->status).empty()) std::abort();
    platform::MemorySource token(reply->token);
    platform::Bytes content;
    toolkit::OperationLog log;
    const auto findings = toolkit::cms::VerifyAttached(token, {}, log, [&](platform::ByteView piece) {
        content.insert(content.end(), piece.begin(), piece.end());
        return true;
    });
    if (findings.valid && findings.signers.empty()) std::abort();
    (void)platform::ReadTstInfo(content);
    return 0;
}

#pragma once
// Gets a timestamp token for a signature from an authority (RFC 3161).

#include <optional>

#include "toolkit/ClsHttp.h"
#include "toolkit/cms/SigningOptions.h"

namespace toolkit::cms {

// The token over the bytes of the signature, as the authority sent it. One POST, no retry. A granted token is taken
// only if it answers this request and verifies (TimestampToken.h): one that nobody could check later would be found out
// only when it is needed. Not checked: the authority's chain, which is the verifier's business.
// Empty on failure, with the reason in the log. Null client: one with default settings.
std::optional<platform::Bytes> GetTimestampToken(const TimestampOptions& options, platform::ByteView signature,
                                                 const ClsHttp* http, OperationLog& log);

}  // namespace toolkit::cms

#pragma once
// Whether a timestamp token answers the request it came for (RFC 3161, 2.2).

#include "toolkit/ClsBase.h"
#include "toolkit/cms/TimestampRequest.h"

namespace toolkit::cms {

// True if the token decodes, stamps the imprint that was asked for, repeats the nonce and, where one was named, the
// policy; and, where its certificate was asked for, if that is in it and the token's signature verifies with it. Not
// judged: the certificate's chain, and the authority's clock. False with the reason in the log.
bool TokenAnswers(platform::ByteView token, const TimestampRequest& request, OperationLog& log);

}  // namespace toolkit::cms

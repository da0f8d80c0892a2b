#pragma once
// Whether a timestamp token answers the request it came for (RFC 3161, 2.2).

#include "toolkit/ClsBase.h"
#include "toolkit/cms/TimestampRequest.h"

namespace toolkit::cms {

// True if the token decodes, stamps the imprint that was asked for, repeats the nonce and, where one was named, the
// policy; and if its signature verifies with the certificate in it, which must be there where it was asked for.
// `stamped` are the bytes that the imprint is of. Not judged: the certificate's chain, and the authority's clock. False
// with the reason in the log.
bool TokenAnswers(platform::ByteView token, const TimestampRequest& request, platform::ByteView stamped,
                  OperationLog& log);

}  // namespace toolkit::cms

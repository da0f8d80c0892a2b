#pragma once
// Checks a timestamp token over a signature value (RFC 3161 2.4.2, RFC 5126 6.1.1).

#include "toolkit/cms/SignerVerifier.h"

namespace toolkit::cms {

// `pool`: certificates of the message around, for tokens that came without any.
TimestampFindings VerifyTimestamp(platform::ByteView token, const platform::Bytes& signatureValue,
                                  const CertificatePool& pool, OperationLog& log);

}  // namespace toolkit::cms

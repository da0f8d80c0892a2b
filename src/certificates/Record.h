#pragma once

#include "platform/Certificates.h"
#include "toolkit/CkJsonObjectW.h"

namespace certificates {

// Describes a certificate: "Serial", "CommonName", "Issuer", "Subject" (a line for each part, the last first),
// "Organization", "Thumbprint" (SHA-1), "ThumbprintSHA256", "SignatureAlgorithm", "SubjectKeyId", "AuthorityKeyId",
// "KeySize" (bits), "NotBefore" and "NotAfter" (local time with its distance from UTC), in this order; what a
// certificate does not have is an empty text. Then, only where there is one, "CRL", "OCSP", "EnhancedKeyUsage" and
// "EnhancedKeyUsageCritical": arrays that hold the last element alone, as readers of the record know them.
// False after an exception: then "Error" and "ErrorMessage" stand behind the members written so far.
bool FillRecord(const platform::CertificateContext& context, toolkit::CkJsonObjectW& record);

}  // namespace certificates

#pragma once
// The verdicts on a file's signatures for callers: as JSON and as plain callbacks.

#include <cstdint>

#include "norvik/norvik.h"
#include "src/verification/SignatureEntry.h"
#include "toolkit/CkJsonArrayW.h"

namespace verification {

// One object for each signature, with, in this order: "Error" and "ErrorMessage" (only if the signature is not good),
// "SignStatus" ("ok" or "fail"), "SignStatusMessage" (if it failed), "CertStatus", "CertStatusMessage" (likewise),
// "CRLStatusMessage" (if there is one), "Certificate" (the record of certificates/Record.h), "HashAlgorithm", "CADES",
// "Timestamp", "SigningTime" (if the signer tells one), "SigningTimestamp" (if there is a timestamp), "Digest",
// "Comment" (if there is one).
void AddSignInfo(const SignatureEntries& entries, toolkit::CkJsonArrayW& answer);

// Answers a request with "SignFile" and, for detached signatures, "DataFile". True if the signatures were reported;
// failures are reported as one object with "Error" and "ErrorMessage", unless they are thrown. A null callback:
// nothing is done.
bool ReportSignInfoJson(const char16_t* request, NorvikJsonCallback callback, std::uint64_t context);

// Calls back for each signature; a null data file: beside the signature. Throws what VerifySignatureFile throws.
void ReportSignInfo(const char16_t* file, const char16_t* dataFile, NorvikSignInfoCallback callback,
                    std::uint64_t context);

}  // namespace verification

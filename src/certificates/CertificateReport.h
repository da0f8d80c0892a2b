#pragma once
// All certificates of a file or a store that pass the filter, told as records.

#include <cstdint>

#include "norvik/norvik.h"
#include "src/certificates/Request.h"
#include "toolkit/CkJsonArrayW.h"

namespace certificates {

// An array of records; of one object with "Error" and "ErrorMessage", and false, if a source gives no certificates.
// Throws as Gather does.
bool CollectRecords(const CertificateRequest& request, toolkit::CkJsonArrayW& answer);

// The array for a request as JSON goes to the callback, over several lines. False if it tells a failure, and without a
// call for a null callback or request.
bool ReportJson(const char16_t* request, NorvikJsonCallback callback, std::uint64_t context);

// A call for each certificate of a file, or one with the failure. The flag says that the certificate is valid now.
bool ReportRecords(const char16_t* file, NorvikRecordCallback callback, std::uint64_t context);
bool ReportRecordsWithFlag(const char16_t* file, NorvikRecordFlagCallback callback, std::uint64_t context);

}  // namespace certificates

#pragma once
// Signing one file as a caller asks for it in JSON: certificates are gathered, the person decides, the engine signs.

#include <cstdint>
#include <optional>
#include <string>

#include "norvik/norvik.h"
#include "platform/Secret.h"
#include "src/certificates/Filter.h"
#include "src/settings/TsaList.h"

namespace signing {

struct SignRequest {
    std::u16string file;
    std::u16string resultFolder;  // the file's own where the caller names none
    int mode = 0;                 // 0 detached, 1 attached, else the person decides
    certificates::CertificateFilter filter;
    std::vector<settings::TsaRecord> authorities;  // the caller's, else those of the settings
    std::optional<std::u16string> pfx;             // further sources of certificates
    platform::Secret pfxPassword;
    std::optional<std::u16string> store;
};

// Empty for a text that is no JSON object or names no file.
std::optional<SignRequest> ReadSignRequest(const char16_t* text);

// Runs a request in this process. The answer goes to the callback, once; none where the person cancels. True if the
// engine ran, also without success: then the answer has "Error". A std::exception on the way is answered with "Error"
// and its text, and false.
bool SignByRequest(const char16_t* request, NorvikJsonCallback callback, std::uint64_t context);

}  // namespace signing

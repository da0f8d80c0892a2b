#pragma once
// What a caller asks for: where certificates come from and which of them are wanted.

#include <optional>
#include <string>

#include "crypt/CryptStore.h"
#include "platform/Secret.h"
#include "src/certificates/Filter.h"

namespace certificates {

// At least one source. The file is read first; what both hold is there once.
struct CertificateRequest {
    std::optional<std::u16string> file;  // certificates, or a PFX if it ends in .pfx or .p12
    std::optional<std::u16string> store;
    CertificateFilter filter;
    platform::Secret password;    // of the PFX
    bool showDialogIfOne = true;  // for a selection: false takes a single certificate without asking
};

// The members "Filename", "Store", "Password", "ShowDialogIfOne" and those of the filter. Empty for a text that is no
// JSON object, or one without a source.
std::optional<CertificateRequest> ReadRequest(const char16_t* text);

// A password member; empty if it is absent. The copy on the way is wiped.
platform::Secret SecretOf(toolkit::CkJsonObjectW& json, const char16_t* key);

// A memory store with what the sources hold and the filter lets through, possibly nothing. A source that does not open
// or holds no certificate at all ends it: then `failure` tells why. Throws InvalidPassword for a PFX.
struct GatheredCertificates {
    tessaly::CryptStore certificates;
    std::u16string failure;
};
GatheredCertificates Gather(const CertificateRequest& request);

}  // namespace certificates

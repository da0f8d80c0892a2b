#pragma once
// Makes one signature file from one file with one chosen certificate.

#include <cstdint>
#include <functional>
#include <string>

#include "platform/Certificates.h"
#include "src/settings/TsaList.h"

namespace signing {

// What only the command line asks for.
struct SignExtras {
    bool derOrder = false;  // signed attributes sorted as DER wants a SET OF
    std::function<void(std::uint64_t done, std::uint64_t total)> progress;
};

// Writes `file` with ".p7s" (detached) or ".p7m" appended, beside the file or in `resultFolder` (made if missing, one
// level) and stores the path in `resultFile`. The certificate is looked up anew in the stores by its thumbprint: the
// store's copy and its key sign. With an authority the signature carries its timestamp, and no signature is made if
// that cannot be had. False: nothing was written and the person has been told why. Throws
// std::filesystem::filesystem_error for the result folder.
bool SignEngine(const std::u16string& file, const platform::CertificateContext& certificate,
                const settings::TsaRecord* authority, bool detached, std::u16string& resultFile,
                const std::u16string& resultFolder, const SignExtras& extras = {});

}  // namespace signing

#pragma once
// Revocation of one certificate by the CRLs that it names itself, fetched anew for each question.

#include <filesystem>
#include <string>
#include <string_view>

#include "crypt/Status.h"
#include "platform/Certificates.h"

namespace verification {

// Upper-case hexadecimal of the data's digest ("SHA256" and the like); empty for no data. Where the host lacks the
// algorithm the person is told, and the text is empty.
std::u16string HashToHex(platform::ByteView data, std::u16string_view algorithm);
using HashRoutine = std::u16string (*)(platform::ByteView, std::u16string_view);

// The first CRL that can be fetched, decodes and is current decides: 0 if it does not list the certificate,
// CRYPT_E_REVOKED with date and reason if it does. When none decides, or nobody gave a hash routine, the status is
// CRYPT_E_NO_REVOCATION_CHECK. A name in `alternateUrl` takes the place of the certificate's own addresses.
// Addresses without "http" in them are passed over. Signature and issuer of the CRL are not looked at.
//
// `cacheDir` is made if it is missing; the file of each fetched CRL stays in `workDir`, named by its address, until the
// next question replaces it. Blocks for as long as the network library waits. Throws std::runtime_error if that library
// does not start.
tessaly::CertStatusResult CheckCrl(const platform::CertificateContext& certificate, HashRoutine hashRoutine,
                                   const std::filesystem::path& cacheDir, const std::filesystem::path& workDir,
                                   const std::u16string& alternateUrl = {});

}  // namespace verification

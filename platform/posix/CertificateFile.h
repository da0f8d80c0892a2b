#pragma once
// What a file of certificates holds, whatever its format.

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/Stores.h"

namespace platform::posix {

struct CertificateFile {
    std::vector<CertificateContext> certificates;
    std::vector<CrlContext> crls;
    std::size_t damaged = 0;  // pieces that had the right label and did not decode

    [[nodiscard]] std::size_t Count() const { return certificates.size() + crls.size(); }
};

// One certificate or CRL in DER; any number of them and of PKCS#7 bundles in PEM, with or without text around; a PKCS#7
// bundle (RFC 5652 SignedData, BER too); any of the binary forms in bare Base64. A byte order mark is passed over.
// Nothing understood: an empty answer with CRYPT_E_BAD_ENCODE or what the decoder said.
CertificateFile ReadCertificateFile(ByteView bytes);

// The same file without this certificate; text around PEM blocks and blocks of other kinds stay as they are. A binary
// bundle comes back as PEM. Empty text: nothing is left. No answer: the certificate is not in it.
std::optional<std::string> WithoutCertificate(ByteView bytes, const CertificateContext& certificate);

// One PEM block (RFC 7468), lines of 64 characters.
std::string WritePem(std::string_view label, ByteView der);

}  // namespace platform::posix

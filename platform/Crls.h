#pragma once
// What one CRL (RFC 5280, 5) says, as it stands: neither its signature nor its issuer is looked at here.

#include <optional>
#include <string_view>
#include <vector>

#include "platform/Certificates.h"
#include "platform/Stores.h"

namespace platform {

struct CRL_INFO {
    FILETIME ThisUpdate = 0;
    std::optional<FILETIME> NextUpdate;
    ByteView Entries;  // revokedCertificates without its header; valid while the context lives
};

// The fields of the list. Empty with the last error if one of them does not decode; the entries are not looked at.
std::optional<CRL_INFO> CrlInfoOf(const CrlContext& crl);

// -1 before ThisUpdate, 0 within, 1 after NextUpdate. A list that names no NextUpdate never ends.
int CertVerifyCRLTimeValidity(FILETIME moment, const CRL_INFO& info);

struct CRL_ENTRY {
    FILETIME RevocationDate = 0;
    std::vector<CERT_EXTENSION> rgExtension;
};

// The first entry with the certificate's serial number; none: the certificate is not listed. False with the last error
// if an entry on the way does not decode.
bool CertFindCertificateInCRL(const CertificateContext& certificate, const CRL_INFO& info,
                              std::optional<CRL_ENTRY>& entry);

constexpr std::uint32_t CRYPT_STRING_BASE64X509CRLHEADER = 9;
// The bytes in the first block "X509 CRL" of a PEM text. Empty for a text without one and for other forms.
std::optional<Bytes> CryptStringToBinaryA(std::string_view text, std::uint32_t form);

}  // namespace platform

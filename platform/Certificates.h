#pragma once
// Certificate contexts and what can be read from them (RFC 5280).

#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/Error.h"
#include "platform/Types.h"

namespace platform {

class CertStore;

struct CERT_EXTENSION {
    std::string pszObjId;  // dotted
    bool fCritical = false;
    Bytes Value;  // the contents of extnValue
};

// The fields of a certificate, decoded once.
struct CERT_INFO {
    std::uint32_t dwVersion = 0;     // as encoded: 2 is v3
    Bytes SerialNumber;              // little-endian: the last stored byte is the first that a person reads
    std::string SignatureAlgorithm;  // OID of the outer signatureAlgorithm
    Bytes SignatureParameters;       // its parameters in DER, empty if absent
    Bytes Issuer, Subject;           // Names in DER, as they stand
    FILETIME NotBefore = 0, NotAfter = 0;
    Bytes SubjectPublicKeyInfo;  // DER
    std::vector<CERT_EXTENSION> rgExtension;
};

// One certificate. A value: copies share the decoded certificate and its properties. Null when default-made.
class CertificateContext {
  public:
    CertificateContext() = default;
    explicit operator bool() const { return impl_ != nullptr; }
    // The bytes as they came in; valid while any copy lives.
    [[nodiscard]] ByteView Encoded() const;
    // Must not be called on a null context.
    [[nodiscard]] const CERT_INFO& Info() const;
    // The store that it came from, null if none: a chain looks for issuers there too.
    [[nodiscard]] CertStore Store() const;
    // The same certificate as if it came from another store.
    [[nodiscard]] CertificateContext FromStore(const CertStore& store) const;
    // The same encoded certificate (two null contexts are equal).
    friend bool operator==(const CertificateContext& a, const CertificateContext& b);

    struct Impl;  // defined by the backend
    struct Origin;
    explicit CertificateContext(std::shared_ptr<const Impl> impl) : impl_(std::move(impl)) {}
    [[nodiscard]] const std::shared_ptr<const Impl>& Backend() const { return impl_; }

  private:
    std::shared_ptr<const Impl> impl_;
    std::shared_ptr<const Origin> origin_;
};

// From one DER certificate with nothing behind it. Null with CRYPT_E_ASN1_EOD, CRYPT_E_ASN1_BADTAG or
// CRYPT_E_BAD_ENCODE.
CertificateContext CertCreateCertificateContext(ByteView der);

// Properties. SHA-1, MD5 and SHA-256 hashes and the key identifier are computed; others are what was set on the
// context.
constexpr std::uint32_t CERT_KEY_PROV_INFO_PROP_ID = 2;  // where the private key is: UTF-8, the backend's own words
constexpr std::uint32_t CERT_SHA1_HASH_PROP_ID = 3;
constexpr std::uint32_t CERT_MD5_HASH_PROP_ID = 4;
constexpr std::uint32_t CERT_KEY_CONTEXT_PROP_ID = 5;
constexpr std::uint32_t CERT_ENHKEY_USAGE_PROP_ID = 9;    // DER ExtKeyUsageSyntax set on the context
constexpr std::uint32_t CERT_FRIENDLY_NAME_PROP_ID = 11;  // UTF-16LE with terminator
constexpr std::uint32_t CERT_KEY_IDENTIFIER_PROP_ID = 20;
constexpr std::uint32_t CERT_SHA256_HASH_PROP_ID = 107;
std::optional<Bytes> CertGetCertificateContextProperty(const CertificateContext& certificate, std::uint32_t property);
// Shared by all copies of the context; an absent value removes the property.
bool CertSetCertificateContextProperty(const CertificateContext& certificate, std::uint32_t property,
                                       std::optional<Bytes> value);

// --- Names. The texts are told without terminator: an empty text is what a length of 1 stands for. ---
constexpr std::uint32_t CERT_NAME_EMAIL_TYPE = 1;
constexpr std::uint32_t CERT_NAME_RDN_TYPE = 2;
constexpr std::uint32_t CERT_NAME_ATTR_TYPE = 3;
constexpr std::uint32_t CERT_NAME_SIMPLE_DISPLAY_TYPE = 4;
constexpr std::uint32_t CERT_NAME_ISSUER_FLAG = 1;
// Simple display: the first present of commonName, organizationalUnitName, organizationName, e-mail address; else the
// rfc822Name of the subject alternative name; else the first attribute of the name.
std::u16string CertGetNameStringW(const CertificateContext& certificate, std::uint32_t type, std::uint32_t flags,
                                  std::string_view attributeOid = {});

constexpr std::uint32_t CERT_SIMPLE_NAME_STR = 1;
constexpr std::uint32_t CERT_OID_NAME_STR = 2;
constexpr std::uint32_t CERT_X500_NAME_STR = 3;
constexpr std::uint32_t CERT_NAME_STR_CRLF_FLAG = 0x08000000;
constexpr std::uint32_t CERT_NAME_STR_REVERSE_FLAG = 0x02000000;
// A Name in DER as text; values that hold a comma, plus, equals, quote, line end, < > # ; or an outer blank are quoted.
std::u16string CertNameToStrW(ByteView nameDer, std::uint32_t flags);

// --- Extensions ---
// Null if the certificate has none of that OID; valid while the certificate lives.
const CERT_EXTENSION* CertFindExtension(const CertificateContext& certificate, std::string_view oid);

std::optional<Bytes> DecodeOctetString(ByteView der);  // X509_OCTET_STRING, also a subject key identifier
struct CERT_AUTHORITY_KEY_ID {
    Bytes KeyId;
    Bytes CertSerialNumber;  // little-endian
};
std::optional<CERT_AUTHORITY_KEY_ID> DecodeAuthorityKeyId(ByteView der);   // 2.5.29.1 (X509_AUTHORITY_KEY_ID)
std::optional<CERT_AUTHORITY_KEY_ID> DecodeAuthorityKeyId2(ByteView der);  // 2.5.29.35 (X509_AUTHORITY_KEY_ID2)

constexpr std::uint32_t CRL_DIST_POINT_FULL_NAME = 1;
constexpr std::uint32_t CERT_ALT_NAME_RFC822_NAME = 2;
constexpr std::uint32_t CERT_ALT_NAME_DNS_NAME = 3;
constexpr std::uint32_t CERT_ALT_NAME_DIRECTORY_NAME = 5;
constexpr std::uint32_t CERT_ALT_NAME_URL = 7;
struct CERT_ALT_NAME_ENTRY {
    std::uint32_t dwAltNameChoice = 0;  // tag number plus one
    std::u16string pwszText;            // of the text forms
    Bytes Value;                        // of the others: the element in DER
};
struct CRL_DIST_POINT {
    std::uint32_t dwDistPointNameChoice = 0;  // 0 none, 1 full name, 2 relative to the issuer
    std::vector<CERT_ALT_NAME_ENTRY> FullName;
};
std::optional<std::vector<CRL_DIST_POINT>> DecodeCrlDistPoints(ByteView der);
struct CERT_ACCESS_DESCRIPTION {
    std::string pszAccessMethod;  // dotted
    CERT_ALT_NAME_ENTRY AccessLocation;
};
std::optional<std::vector<CERT_ACCESS_DESCRIPTION>> DecodeAccessDescriptions(ByteView der);  // RFC 5280, 4.2.2.1

// The field's name of an identifier, else the identifier itself.
std::string OidName(std::string_view oid);
// RFC 7468, 5.
std::string PemOfCertificate(ByteView der);

// The usages of the extension, else those of the property. No restriction: success, an empty list and CRYPT_E_NOT_FOUND
// as last error. Empty optional if the extension does not decode.
std::optional<std::vector<std::string>> CertGetEnhancedKeyUsage(const CertificateContext& certificate);
// Bits of keyUsage, first byte in the low byte as encoded; empty if absent.
std::optional<std::uint16_t> CertGetIntendedKeyUsage(const CertificateContext& certificate);

// Size of the public key in bits: of the modulus, of the prime field, of the curve. 0 if the key does not decode.
std::uint32_t CertGetPublicKeyLength(const CertificateContext& certificate);

// --- Object identifiers ---
constexpr std::uint32_t CRYPT_OID_INFO_OID_KEY = 1;
constexpr std::uint32_t CRYPT_HASH_ALG_OID_GROUP_ID = 1;
constexpr std::uint32_t CRYPT_PUBKEY_ALG_OID_GROUP_ID = 3;
constexpr std::uint32_t CRYPT_SIGN_ALG_OID_GROUP_ID = 4;
constexpr std::uint32_t CRYPT_RDN_ATTR_OID_GROUP_ID = 5;
constexpr std::uint32_t CRYPT_ENHKEY_USAGE_OID_GROUP_ID = 7;
struct CRYPT_OID_INFO {
    const char* pszOID;
    const char16_t* pwszName;
    std::uint32_t dwGroupId;
};
// Null if the table has no such entry (CRYPT_E_NOT_FOUND). Group 0 stands for all. Key types other than OID_KEY find
// nothing.
const CRYPT_OID_INFO* CryptFindOIDInfo(std::uint32_t keyType, std::string_view oid, std::uint32_t group);

// -1 before, 0 within, 1 after the validity.
int CertVerifyTimeValidity(FILETIME moment, const CertificateContext& certificate);

}  // namespace platform

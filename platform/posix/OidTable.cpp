#include <algorithm>
#include <array>

#include "platform/Certificates.h"

namespace platform {
namespace {

constexpr std::uint32_t kHash = CRYPT_HASH_ALG_OID_GROUP_ID, kKey = CRYPT_PUBKEY_ALG_OID_GROUP_ID,
                        kSign = CRYPT_SIGN_ALG_OID_GROUP_ID, kRdn = CRYPT_RDN_ATTR_OID_GROUP_ID,
                        kUsage = CRYPT_ENHKEY_USAGE_OID_GROUP_ID;

// Where an identifier stands in several groups, a search through all of them meets the first.
constexpr auto kTable = std::to_array<CRYPT_OID_INFO>({
    {"1.2.840.113549.2.2", u"md2", kHash},
    {"1.2.840.113549.2.4", u"md4", kHash},
    {"1.2.840.113549.2.5", u"md5", kHash},
    {"1.3.14.3.2.26", u"sha1", kHash},
    {"2.16.840.1.101.3.4.2.4", u"sha224", kHash},
    {"2.16.840.1.101.3.4.2.1", u"sha256", kHash},
    {"2.16.840.1.101.3.4.2.2", u"sha384", kHash},
    {"2.16.840.1.101.3.4.2.3", u"sha512", kHash},
    {"2.16.840.1.101.3.4.2.7", u"sha3-224", kHash},
    {"2.16.840.1.101.3.4.2.8", u"sha3-256", kHash},
    {"2.16.840.1.101.3.4.2.9", u"sha3-384", kHash},
    {"2.16.840.1.101.3.4.2.10", u"sha3-512", kHash},

    {"1.2.840.113549.1.1.1", u"RSA", kKey},
    {"1.2.840.10040.4.1", u"DSA", kKey},
    {"1.2.840.10045.2.1", u"ECC", kKey},
    {"1.2.840.10046.2.1", u"DH", kKey},
    {"1.3.101.110", u"X25519", kKey},
    {"1.3.101.112", u"Ed25519", kKey},
    {"1.3.101.113", u"Ed448", kKey},

    {"1.2.840.113549.1.1.2", u"md2RSA", kSign},
    {"1.2.840.113549.1.1.3", u"md4RSA", kSign},
    {"1.2.840.113549.1.1.4", u"md5RSA", kSign},
    {"1.2.840.113549.1.1.5", u"sha1RSA", kSign},
    {"1.3.14.3.2.29", u"sha1RSA", kSign},
    {"1.2.840.113549.1.1.14", u"sha224RSA", kSign},
    {"1.2.840.113549.1.1.11", u"sha256RSA", kSign},
    {"1.2.840.113549.1.1.12", u"sha384RSA", kSign},
    {"1.2.840.113549.1.1.13", u"sha512RSA", kSign},
    {"2.16.840.1.101.3.4.3.14", u"sha3-256RSA", kSign},
    {"2.16.840.1.101.3.4.3.15", u"sha3-384RSA", kSign},
    {"2.16.840.1.101.3.4.3.16", u"sha3-512RSA", kSign},
    {"1.2.840.113549.1.1.10", u"RSASSA-PSS", kSign},
    {"1.2.840.10040.4.3", u"sha1DSA", kSign},
    {"1.3.14.3.2.27", u"sha1DSA", kSign},
    {"2.16.840.1.101.3.4.3.1", u"sha224DSA", kSign},
    {"2.16.840.1.101.3.4.3.2", u"sha256DSA", kSign},
    {"1.2.840.10045.4.1", u"sha1ECDSA", kSign},
    {"1.2.840.10045.4.3.1", u"sha224ECDSA", kSign},
    {"1.2.840.10045.4.3.2", u"sha256ECDSA", kSign},
    {"1.2.840.10045.4.3.3", u"sha384ECDSA", kSign},
    {"1.2.840.10045.4.3.4", u"sha512ECDSA", kSign},
    {"2.16.840.1.101.3.4.3.9", u"sha3-224ECDSA", kSign},
    {"2.16.840.1.101.3.4.3.10", u"sha3-256ECDSA", kSign},
    {"2.16.840.1.101.3.4.3.11", u"sha3-384ECDSA", kSign},
    {"2.16.840.1.101.3.4.3.12", u"sha3-512ECDSA", kSign},
    {"1.3.101.112", u"Ed25519", kSign},
    {"1.3.101.113", u"Ed448", kSign},

    {"2.5.4.3", u"CN", kRdn},
    {"2.5.4.4", u"SN", kRdn},
    {"2.5.4.5", u"SERIALNUMBER", kRdn},
    {"2.5.4.6", u"C", kRdn},
    {"2.5.4.7", u"L", kRdn},
    {"2.5.4.8", u"S", kRdn},
    {"2.5.4.9", u"STREET", kRdn},
    {"2.5.4.10", u"O", kRdn},
    {"2.5.4.11", u"OU", kRdn},
    {"2.5.4.12", u"T", kRdn},
    {"2.5.4.42", u"G", kRdn},
    {"2.5.4.43", u"I", kRdn},
    {"1.2.840.113549.1.9.1", u"E", kRdn},
    {"0.9.2342.19200300.100.1.25", u"DC", kRdn},

    {"1.3.6.1.5.5.7.3.1", u"Server Authentication", kUsage},
    {"1.3.6.1.5.5.7.3.2", u"Client Authentication", kUsage},
    {"1.3.6.1.5.5.7.3.3", u"Code Signing", kUsage},
    {"1.3.6.1.5.5.7.3.4", u"Secure Email", kUsage},
    {"1.3.6.1.5.5.7.3.5", u"IP security end system", kUsage},
    {"1.3.6.1.5.5.7.3.6", u"IP security tunnel termination", kUsage},
    {"1.3.6.1.5.5.7.3.7", u"IP security user", kUsage},
    {"1.3.6.1.5.5.7.3.8", u"Time Stamping", kUsage},
    {"1.3.6.1.5.5.7.3.9", u"OCSP Signing", kUsage},
    {"1.3.6.1.5.5.7.3.36", u"Document Signing", kUsage},
    {"0.4.0.2231.3.0", u"Trusted List Signing", kUsage},
    {"1.3.6.1.5.5.8.2.2", u"IP security IKE intermediate", kUsage},
    {"1.3.6.1.4.1.311.20.2.2", u"Smart Card Logon", kUsage},
    {"1.3.6.1.4.1.311.10.3.12", u"Document Signing", kUsage},
    {"1.3.6.1.4.1.311.10.3.4", u"Encrypting File System", kUsage},
    {"2.5.29.37.0", u"Any Purpose", kUsage},
});

}  // namespace

const CRYPT_OID_INFO* CryptFindOIDInfo(std::uint32_t keyType, std::string_view oid, std::uint32_t group) {
    const auto matches = [&](const CRYPT_OID_INFO& entry) {
        return (group == 0 || entry.dwGroupId == group) && oid == entry.pszOID;
    };
    const auto found =
        keyType == CRYPT_OID_INFO_OID_KEY ? std::find_if(kTable.begin(), kTable.end(), matches) : kTable.end();
    if (found != kTable.end()) return &*found;
    SetLastError(CRYPT_E_NOT_FOUND);
    return nullptr;
}

}  // namespace platform

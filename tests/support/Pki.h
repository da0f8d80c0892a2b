#pragma once
// Certificates, CRLs and PFX files made inside a test. Everything throws std::runtime_error with the crypto library's
// reason when it cannot be made.
//
//   const Certificate root = Issue({.subject = {{"CN", "Root"}}, .ca = true});
//   const Certificate leaf = Issue({.subject = {{"CN", "Иван"}}, .key = TestKey(KeyType::p256)}, root);
//   const Bytes crl = MakeCrl(root, {.revoked = {{leaf.Serial(), 1'700'000'000, 1}}});

#include <openssl/evp.h>
#include <openssl/x509.h>

#include <ctime>
#include <memory>

#include "platform/Types.h"
#include "tests/support/Profile.h"

namespace tests {

using platform::Bytes;
using platform::ByteView;
using Key = std::shared_ptr<EVP_PKEY>;

constexpr std::int64_t kDay = 86'400;

std::string PemOf(const char* label, ByteView der);
std::string Hex(ByteView bytes);  // upper case

// --- Keys ---
enum class KeyType { rsa2048, rsa3072, rsa4096, p256, p384, dsa2048 };
// The key number `index` of its type; the same one on every call of a process. RSA and DSA come from tests/data/keys
// (RSA-2048: 0 to 4, RSA-3072 and DSA: 0 and 1, RSA-4096: 0), elliptic curves are made and take any index.
Key TestKey(KeyType type, unsigned index = 0);
Key GenerateKey(KeyType type);  // no DSA

// --- Names ---
struct NameEntry {
    std::string type = {};               // "CN", "O", "serialNumber", ... or a dotted number
    std::string value = {};              // UTF-8 for stringType UTF8, BMP and UNIVERSAL, else the bytes as stored
    int stringType = V_ASN1_UTF8STRING;  // V_ASN1_...
    bool joinsPrevious = false;          // in the same RDN as the entry before it
};
using Name = std::vector<NameEntry>;

// --- Certificates ---
struct Extension {
    std::string oid = {};
    bool critical = false;
    Bytes value = {};  // DER, what stands inside extnValue
};

// Texts for extensions are written as OpenSSL's configuration has them; empty ones leave the extension out.
struct CertificateSpec {
    Name subject = {{"CN", "Test"}};
    std::optional<Name> issuerName = {};  // another name than the issuer's subject
    Bytes serial = {};                    // big-endian, unsigned; empty: eight random bytes
    std::int64_t notBefore = std::time(nullptr) - kDay;
    std::int64_t notAfter = std::time(nullptr) + 365 * kDay;
    Key key = TestKey(KeyType::rsa2048);
    std::optional<bool> ca = false;  // no value: no basicConstraints
    std::optional<int> pathLength = {};
    std::string keyUsage = "default";   // "default": keyCertSign,cRLSign for a CA, else digitalSignature,nonRepudiation
    std::string extendedKeyUsage = {};  // "emailProtection", "critical,timeStamping", "1.2.3.4"
    std::string subjectAltName = {};    // "email:a@example.bg,DNS:b.bg"
    std::string nameConstraints = {};   // "critical,permitted;email:.bg"
    std::string policyConstraints = {};  // "critical,requireExplicitPolicy:0"
    std::vector<std::string> crlUrls = {}, ocspUrls = {}, caIssuersUrls = {};
    bool subjectKeyId = true;
    bool authorityKeyId = true;
    std::vector<Extension> extra = {};
    const char* hash = "SHA256";
    bool pss = false;  // RSASSA-PSS instead of PKCS#1 v1.5
    bool breakSignature = false;
    Key signWith = {};  // another key than the issuer's
};

// A certificate and, if known, its private key. A value: copies share both.
class Certificate {
  public:
    Certificate() = default;
    explicit Certificate(ByteView der, Key key = {});

    [[nodiscard]] X509* Native() const { return certificate_.get(); }
    [[nodiscard]] const Key& PrivateKey() const { return key_; }
    [[nodiscard]] const Bytes& Der() const { return der_; }
    [[nodiscard]] std::string Pem() const { return PemOf("CERTIFICATE", der_); }
    [[nodiscard]] Bytes Pkcs8() const;
    [[nodiscard]] std::string KeyPem() const { return PemOf("PRIVATE KEY", Pkcs8()); }
    [[nodiscard]] std::string Thumbprint() const;                          // SHA-1, 40 upper-case hexadecimal digits
    [[nodiscard]] Bytes Serial() const;                                    // big-endian
    [[nodiscard]] std::string SerialHex() const { return Hex(Serial()); }  // as `openssl x509 -serial` has it
    [[nodiscard]] Bytes SubjectDer() const;
    [[nodiscard]] Bytes PublicKeyInfo() const;  // SubjectPublicKeyInfo in DER

  private:
    std::shared_ptr<X509> certificate_;
    Bytes der_;
    Key key_;
};

Certificate Issue(const CertificateSpec& spec, const Certificate& issuer = {});  // no issuer: self-signed

// --- CRLs ---
struct RevokedEntry {
    Bytes serial = {};
    std::int64_t when = 0;
    int reason = -1;    // RFC 5280, 5.3.1; -1: without the extension
    Bytes issuer = {};  // certificateIssuer, a Name in DER; empty: without the extension
};
struct CrlSpec {
    std::vector<RevokedEntry> revoked = {};
    std::int64_t thisUpdate = std::time(nullptr) - kDay;
    std::optional<std::int64_t> nextUpdate = std::time(nullptr) + 7 * kDay;
    std::int64_t number = 1;
    std::vector<Extension> extra = {};
    const char* hash = "SHA256";
    bool breakSignature = false;
    Key signWith = {};  // another key than the issuer's
};
Bytes MakeCrl(const Certificate& issuer, const CrlSpec& spec = {});

// --- PFX ---
enum class PfxCipher { none, aes256, des3, rc2_40 };  // rc2_40: certificates RC2-40, keys 3DES, as old systems wrote
struct PfxSpec {
    std::vector<Certificate> certificates = {};  // those with a key bring it along
    std::string password = {};                   // UTF-8
    PfxCipher cipher = PfxCipher::aes256;
    std::string friendlyName = {};
};
Bytes MakePfx(const PfxSpec& spec);

// --- Stores ---
// Puts a certificate into a store of the profile's user, with its key when asked.
void InstallCertificate(const Profile& profile, const std::string& store, const Certificate& certificate,
                        bool withKey = false);
void InstallCrl(const Profile& profile, const std::string& store, ByteView crl);

// Root, issuing CA, a signer with a Bulgarian name and a timestamp authority.
struct StandardPki {
    // `makeKey` gives each of the four its key: the signer's is of `keyType`, the others' are RSA-2048.
    explicit StandardPki(KeyType keyType = KeyType::rsa2048, Key (*makeKey)(KeyType, unsigned) = TestKey);

    Certificate root, ca, signer, tsa;

    // Root into ROOT, CA into CA, the signer with its key into MY.
    void Install(const Profile& profile) const;
    // CRLs of root and CA without entries: then every certificate can be checked. `revoked`: of the CA's list.
    void InstallCrls(const Profile& profile, const std::vector<RevokedEntry>& revoked = {}) const;
    [[nodiscard]] std::string ChainPem() const { return ca.Pem() + root.Pem(); }
};

}  // namespace tests

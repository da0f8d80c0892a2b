#pragma once
// The backend's side of certificates, CRLs, stores and keys: how files in this folder reach what lies behind the
// handles.

#include <filesystem>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "platform/Certificates.h"
#include "platform/HostLog.h"
#include "platform/Keys.h"
#include "platform/Stores.h"
#include "platform/posix/OpenSsl.h"

namespace platform {

// What CertCreateCertificateContext decoded, and the properties that all copies share.
struct CertificateContext::Impl {
    Bytes encoded;
    posix::X509Ptr x509;
    CERT_INFO info;
    mutable std::mutex propertiesLock;
    mutable std::map<std::uint32_t, Bytes> properties;
    // Opens the private key that came with the certificate; empty if there is none. Set by the store that found it.
    mutable std::shared_ptr<PrivateKey::Impl> attachedKey;  // guarded by propertiesLock
};

struct CertificateContext::Origin {
    std::shared_ptr<CertStore::Impl> store;
};

struct CrlContext::Impl {
    Bytes encoded;
    Bytes issuer;
    posix::X509CrlPtr crl;
};

// A source of certificates. Calls may come from several threads.
class CertStore::Impl {
  public:
    virtual ~Impl() = default;
    virtual std::vector<CertificateContext> Certificates() = 0;
    virtual std::vector<CrlContext> Crls() { return {}; }
    // The lookups have defaults that walk Certificates(); a store with an index answers faster.
    virtual CertificateContext FindBySha1(ByteView sha1);
    virtual std::vector<CertificateContext> FindBySubject(ByteView subjectName);
    virtual bool Add(const CertificateContext& certificate, std::uint32_t disposition);
    virtual bool AddCrl(const CrlContext& crl);
    virtual bool Remove(const CertificateContext& certificate);
};

// A key that can sign. Opening a handle to it costs nothing; a file is decrypted or a token is opened at Unlock.
class PrivateKey::Impl {
  public:
    virtual ~Impl() = default;
    [[nodiscard]] virtual KeyAlgorithm Algorithm() const = 0;
    [[nodiscard]] virtual bool IsExportable() const = 0;
    [[nodiscard]] virtual std::size_t SignatureSize() const = 0;
    // Makes the key ready and checks that it is there (asks for a passphrase; opens the token without login). False
    // with the last error set.
    virtual bool Unlock() = 0;
    // SubjectPublicKeyInfo in DER, empty if unknown before Unlock.
    virtual Bytes PublicKeyInfo() = 0;
    virtual Bytes Sign(HashAlgorithm algorithm, ByteView digest) = 0;
    // PKCS#8 in DER of a software key, to be kept in a store; empty for a token's.
    virtual Secret ExportPkcs8() { return {}; }
};

namespace posix {

inline X509* NativeOf(const CertificateContext& certificate) {
    return certificate ? certificate.Backend()->x509.get() : nullptr;
}
inline X509_CRL* NativeOf(const CrlContext& crl) {
    return crl ? crl.Backend()->crl.get() : nullptr;
}

// --- Keys.cpp and its neighbours ---
// The key in a PKCS#8 file beside a certificate (PEM, plain or encrypted). Nothing is read before Unlock.
std::shared_ptr<PrivateKey::Impl> MakeFileKey(std::filesystem::path file, std::u16string subject);
// A key held in memory, from a PFX; takes the EVP_PKEY over.
std::shared_ptr<PrivateKey::Impl> MakeMemoryKey(EvpKeyPtr key);
// Writes a PKCS#8 file, mode 0600, encrypted with the passphrase if there is one.
bool WriteKeyFile(const std::filesystem::path& file, const Secret& pkcs8, const Secret& passphrase);

// --- Tokens.cpp and its neighbours ---
// Certificates on PKCS#11 tokens that have their private key there, with the key attached. Opens every module that
// p11-kit knows: slow with a card reader, so asked last.
std::vector<CertificateContext> CertificatesOnTokens();

// --- Stores.cpp ---
// Trust anchors of the host: p11-kit's trust module, else the CA bundle. Read once in a process.
const std::vector<CertificateContext>& HostTrustAnchors();

// Something skipped or odd in the host's services that a person should be able to find: goes to the handler that the
// application set (its log), else nowhere.
void LogHost(std::string_view text);

}  // namespace posix

}  // namespace platform

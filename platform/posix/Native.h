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

namespace posix {

// A certificate or CRL as the crypto library sees it, decoded at the first use: listing a store of thousands, or the
// host's trust anchors, must not pay for it. Safe from several threads.
template <typename Handle>
class LazyNative {
  public:
    template <typename Decode>
    auto Get(ByteView encoded, Decode decode) const {
        std::call_once(once_, [&] { handle_ = decode(encoded); });
        return handle_.get();
    }

  private:
    mutable std::once_flag once_;
    mutable Handle handle_;
};

// A signature that a key was seen to verify. It is a fact about bytes that nothing can change.
struct Proof {
    SignatureScheme scheme;
    Bytes digest, signature;
    friend bool operator==(const Proof&, const Proof&) = default;
};

// What CertCreateCertificateContext decoded; shared by all contexts of it in a process.
struct DecodedCertificate : std::enable_shared_from_this<DecodedCertificate> {
    Bytes encoded;
    CERT_INFO info;
    // Null if the crypto library refuses what the decoder of the fields let through (an odd name, a signature that is
    // no bit string): such a certificate can be shown, and nothing can be proved with it. The object has no public key
    // and cannot check its signature.
    [[nodiscard]] X509* Native() const;
    // Null if there is no Native(), or the key does not decode.
    [[nodiscard]] EVP_PKEY* PublicKey() const;
    // The last one only.
    [[nodiscard]] bool Knows(const Proof& proof) const;
    void Keep(Proof proof) const;
    // Computed at the first use.
    [[nodiscard]] const Bytes& Sha1() const;
    [[nodiscard]] const Bytes& Sha256() const;
    [[nodiscard]] const std::u16string& CanonicalSubject() const;
    [[nodiscard]] const std::u16string& CanonicalIssuer() const;

  private:
    LazyNative<X509Ptr> x509_;
    LazyNative<EvpKeyPtr> publicKey_;
    mutable std::once_flag hashOnce_, sha256Once_, subjectOnce_, issuerOnce_;
    mutable Bytes sha1_, sha256_;
    mutable std::u16string canonicalSubject_, canonicalIssuer_;
    mutable std::mutex proofLock_;
    mutable Proof proof_;
};

}  // namespace posix

// A context: the certificate, and what all copies of the context share. Stores hand out contexts with a state of
// their own, so that what was unlocked or set through one open store ends with it.
struct CertificateContext::Impl {
    std::shared_ptr<const posix::DecodedCertificate> decoded;
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
    posix::LazyNative<posix::X509CrlPtr> crl;
    posix::LazyNative<posix::X509NamePtr> issuerName;
};

// A source of certificates. Calls may come from several threads.
class CertStore::Impl {
  public:
    virtual ~Impl() = default;
    virtual std::vector<CertificateContext> Certificates() = 0;
    virtual std::vector<CrlContext> Crls() { return {}; }
    // OCSPResponses in DER that came with a message; other stores hold none.
    virtual std::vector<Bytes> OcspAnswers() { return {}; }
    virtual void AddOcspAnswers(const std::vector<Bytes>& /*answers*/) {}
    // The lookups have defaults that walk Certificates(); a store with an index answers faster.
    virtual CertificateContext FindBySha1(ByteView sha1);
    // By the name in canonical form, because a chain's names often differ in their encoding (RFC 5280, 7.1). Whoever
    // asks several stores brings it into that form once.
    virtual std::vector<CertificateContext> FindBySubject(const std::u16string& canonicalName);
    // Of a store that also opens tokens or trust anchors: the same store without them, so that a chain can ask folders
    // first. Null: this store opens none.
    virtual std::shared_ptr<Impl> WithoutHostSources() { return nullptr; }
    // The store as it is now, for several look-ups in a row that need not ask after changes each time. Null: look-ups
    // are cheap as it is.
    virtual std::shared_ptr<Impl> Snapshot() { return nullptr; }
    virtual bool Add(const CertificateContext& certificate, std::uint32_t disposition);
    virtual bool AddCrl(const CrlContext& crl);
    virtual bool Remove(const CertificateContext& certificate);
};

// A key that can sign. Opening a handle to it costs nothing; a file is decrypted or a token is opened at Unlock.
class PrivateKey::Impl {
  public:
    virtual ~Impl() = default;
    // A further handle to the same key, not unlocked: the one that hangs on a certificate is never unlocked itself.
    [[nodiscard]] virtual std::shared_ptr<Impl> NewHandle() const = 0;
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

// Null for a null context and for what the crypto library cannot decode.
X509* NativeOf(const CertificateContext& certificate);
X509_CRL* NativeOf(const CrlContext& crl);
// Of the CRL, of which nothing else is decoded for it: most lists of a store are somebody else's.
const X509_NAME* IssuerNameOf(const CrlContext& crl);
EVP_PKEY* PublicKeyOf(const CertificateContext& certificate);
// The certificate with its key, for those functions of the crypto library that take both from one object. Dear.
X509Ptr DecodeWithKey(const CertificateContext& certificate);

// Whether any store has a folder there.
bool HasStores(StoreLocation location);

// The Extensions (RFC 5280, 4.1) that take up all the bytes. False with the last error if they do not decode.
bool DecodeExtensions(ByteView sequence, std::vector<CERT_EXTENSION>& extensions);

// The same certificate with a state (properties, key) of its own; it has this key, which may be null.
CertificateContext WithOwnState(const CertificateContext& certificate, std::shared_ptr<PrivateKey::Impl> key);
std::shared_ptr<PrivateKey::Impl> AttachedKeyOf(const CertificateContext& certificate);
// A text that is equal for two Names in DER when they match by RFC 5280, 7.1: letter case (ASCII), blanks, string types
// and the order within a relative name do not matter.
std::u16string CanonicalName(ByteView nameDer);
std::vector<CertificateContext> FindByCanonicalSubject(const CertStore& store, const std::u16string& canonicalName);
// The 20 bytes by which stores know a certificate.
const Bytes& Sha1Of(const CertificateContext& certificate);

// Where the certificates of a system store lie ("MY" of the current user: DataFolder()/stores/MY). Empty with the last
// error if the name is no store's or there is no home. A private key of "MY" lies beside its certificate.
std::filesystem::path StoreFolder(StoreLocation location, std::u16string_view name);
// Where all of a location lie; empty if there is no home. Text, since every chain asks for it a dozen times.
std::string StoresFolder(StoreLocation location);
std::filesystem::path KeyFileIn(const std::filesystem::path& folder, const CertificateContext& certificate);

// --- Keys.cpp and its neighbours ---
// The key in a PKCS#8 file beside a certificate (PEM, plain or encrypted). Nothing is read before Unlock.
std::shared_ptr<PrivateKey::Impl> MakeFileKey(std::filesystem::path file, std::u16string subject);
// A key held in memory, from a PFX; takes the EVP_PKEY over.
std::shared_ptr<PrivateKey::Impl> MakeMemoryKey(EvpKeyPtr key);
// What stands under the name of a certificate's key file. Asks nobody: one that is encrypted or out of reach counts as
// good. Without a key in it (empty, half-written) there is nothing to lose.
enum class KeyFileState { none, good, foreign };
KeyFileState LookAtKeyFile(const std::filesystem::path& file, const CertificateContext& certificate);
// Writes a PKCS#8 file, mode 0600, encrypted with the passphrase if there is one.
bool WriteKeyFile(const std::filesystem::path& file, const Secret& pkcs8, const Secret& passphrase);

// --- Tokens.cpp and its neighbours ---
// Certificates on PKCS#11 tokens that have their private key there, with the key attached. Opens every module that
// p11-kit knows: slow with a card reader, so asked last.
std::vector<CertificateContext> CertificatesOnTokens();

// --- Stores.cpp ---
// Trust anchors of the host: p11-kit's trust module, else the CA bundle. Read once in a process.
const std::vector<CertificateContext>& HostTrustAnchors();
CertificateContext FindHostTrustAnchor(ByteView sha1);

// Something skipped or odd in the host's services that a person should be able to find: goes to the handler that the
// application set (its log), else nowhere.
void LogHost(std::string_view text);

}  // namespace posix

}  // namespace platform

#pragma once
// Certificate stores: the system's named ones, files and memory.

#include <filesystem>
#include <memory>
#include <optional>
#include <string_view>
#include <vector>

#include "platform/Certificates.h"
#include "platform/Secret.h"

namespace platform {

// A CRL (RFC 5280, 5) as it came in.
class CrlContext {
  public:
    CrlContext() = default;
    explicit operator bool() const { return impl_ != nullptr; }
    [[nodiscard]] ByteView Encoded() const;
    [[nodiscard]] ByteView Issuer() const;  // Name in DER

    struct Impl;
    explicit CrlContext(std::shared_ptr<const Impl> impl) : impl_(std::move(impl)) {}
    [[nodiscard]] const std::shared_ptr<const Impl>& Backend() const { return impl_; }

  private:
    std::shared_ptr<const Impl> impl_;
};
CrlContext CertCreateCRLContext(ByteView der);

// An open store. A value: copies are the same store; null when it could not be opened.
class CertStore {
  public:
    CertStore() = default;
    explicit operator bool() const { return impl_ != nullptr; }
    class Impl;  // what a backend provides
    explicit CertStore(std::shared_ptr<Impl> impl) : impl_(std::move(impl)) {}
    [[nodiscard]] const std::shared_ptr<Impl>& Backend() const { return impl_; }
    friend bool operator==(const CertStore&, const CertStore&) = default;

  private:
    std::shared_ptr<Impl> impl_;
};

enum class StoreLocation { currentUser, localMachine };

// A memory store, empty.
CertStore CertOpenMemoryStore();
// The view of the current user: the user's folder, the machine's folder and, for "ROOT" and "MY", what the host has
// (trust anchors; certificates with keys on tokens). Any name opens; one that nobody used is an empty store. A name
// that would leave the stores' folder (empty, with a slash, "..") fails with ERROR_INVALID_PARAMETER.
CertStore CertOpenSystemStoreW(std::u16string_view name);
// One location alone, without what the host adds elsewhere; `withHostSources` false leaves tokens and trust anchors
// unopened. Used where folders are to be asked before a card reader is started.
CertStore CertOpenSystemStoreAt(StoreLocation location, std::u16string_view name, bool withHostSources);
// The host's own sources for a name alone: tokens for "MY", trust anchors for "ROOT"; empty for others.
CertStore CertOpenHostStore(std::u16string_view name);
// One certificate (DER or PEM), several in PEM, or a PKCS#7 bundle (DER or PEM). Null with the last error if it holds
// none; with a store, the last error is CRYPT_E_BAD_ENCODE if pieces of the file did not decode and ERROR_SUCCESS if
// not.
CertStore CertOpenFileStore(const std::filesystem::path& path);
CertStore CertOpenBytesStore(ByteView bytes);
// The names of the system stores that exist for the current user or the machine, sorted, "MY", "CA", "ROOT" always
// among them.
std::vector<std::u16string> CertEnumSystemStore();

// A snapshot in the store's order: user, machine, host; each certificate once.
std::vector<CertificateContext> CertEnumCertificatesInStore(const CertStore& store);
std::vector<CrlContext> CertEnumCRLsInStore(const CertStore& store);

// Null and CRYPT_E_NOT_FOUND if there is none.
CertificateContext CertFindBySha1(const CertStore& store, ByteView sha1);
CertificateContext CertFindByIssuerAndSerial(const CertStore& store, ByteView issuerName, ByteView serialLittleEndian);
std::vector<CertificateContext> CertFindBySubject(const CertStore& store, ByteView subjectName);

constexpr std::uint32_t CERT_STORE_ADD_NEW = 1;
constexpr std::uint32_t CERT_STORE_ADD_REPLACE_EXISTING = 3;
constexpr std::uint32_t CERT_STORE_ADD_ALWAYS = 4;
constexpr std::uint32_t CERT_STORE_ADD_NEWER = 6;
// Two certificates match when issuer and serial number are equal. ADD_NEW fails with CRYPT_E_EXISTS on a match; NEWER
// keeps the one whose validity starts later; REPLACE replaces the one that matches, with its properties. System stores
// write to the current user's folder. A private key in memory that came with the certificate (PFX) goes along into
// "MY".
bool CertAddCertificateContextToStore(const CertStore& store, const CertificateContext& certificate,
                                      std::uint32_t disposition);
bool CertAddCRLContextToStore(const CertStore& store, const CrlContext& crl);
// Removes the certificate and its private key file from the user's (for the machine view: the machine's) folder.
// CRYPT_E_NOT_FOUND if it lies elsewhere (a token, the trust anchors).
bool CertDeleteCertificateFromStore(const CertStore& store, const CertificateContext& certificate);

// --- PFX (RFC 7292) ---
// A memory store with all certificates; those with a private key carry it. Reads the old algorithms too and passwords
// in any script. Null with ERROR_INVALID_PASSWORD only when the password is wrong; CRYPT_E_BAD_ENCODE for what is no
// PFX or is damaged; NTE_BAD_ALGID for an algorithm nobody here can do.
CertStore PFXImportCertStore(ByteView pfx, const Secret& password);
// Whether the bytes look like a PFX at all (PFXIsPFXBlob).
bool PFXIsPFXBlob(ByteView bytes);

}  // namespace platform

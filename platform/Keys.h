#pragma once
// Private keys, in software and on tokens, and checks of raw signatures. A token's key never leaves it: a digest goes
// in by PKCS#11 and the signature comes out.

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "platform/Certificates.h"
#include "platform/Hash.h"
#include "platform/Secret.h"
#include "platform/Stores.h"

namespace platform {

enum class KeyAlgorithm { rsa, ecdsa, dsa };

// --- Asking for a PIN ---
struct PinRequest {
    enum class Kind { token, signature /* for this one use: CKA_ALWAYS_AUTHENTICATE */, keyPassphrase };
    Kind kind = Kind::token;
    std::u16string subject;  // the token's label, or the name of the certificate whose key is locked
    bool fewTriesLeft = false;
    bool lastTry = false;  // a wrong PIN now blocks the token
};
class PinPrompt {
  public:
    virtual ~PinPrompt() = default;
    // UTF-8; empty optional: the user gave up (SCARD_W_CANCELLED_BY_USER).
    virtual std::optional<Secret> AskPin(const PinRequest& request) = 0;
};
// Who is asked on this thread while the scope lives; the innermost one rules. With none, a key that wants a PIN fails
// with SCARD_W_CANCELLED_BY_USER. A wrong PIN is never tried again by itself.
class PinPromptScope {
  public:
    explicit PinPromptScope(PinPrompt& prompt);
    ~PinPromptScope();
    PinPromptScope(const PinPromptScope&) = delete;
    PinPromptScope& operator=(const PinPromptScope&) = delete;

  private:
    PinPrompt* previous_;
};

// --- Keys ---
// A private key ready for use; a value, copies are the same key (NCRYPT_KEY_HANDLE). Null when there is none.
class PrivateKey {
  public:
    PrivateKey() = default;
    explicit operator bool() const { return impl_ != nullptr; }
    [[nodiscard]] KeyAlgorithm Algorithm() const;
    // In software, so that the signature is made in this process.
    [[nodiscard]] bool IsExportable() const;
    // Longest signature that it makes, in bytes as they stand in a SignerInfo.
    [[nodiscard]] std::size_t SignatureSize() const;

    class Impl;
    explicit PrivateKey(std::shared_ptr<Impl> impl) : impl_(std::move(impl)) {}
    [[nodiscard]] const std::shared_ptr<Impl>& Backend() const { return impl_; }

  private:
    std::shared_ptr<Impl> impl_;
};

constexpr std::uint32_t CRYPT_ACQUIRE_COMPARE_KEY_FLAG = 0x4;
constexpr std::uint32_t CRYPT_ACQUIRE_PREFER_NCRYPT_KEY_FLAG = 0x20000;
constexpr std::uint32_t CERT_NCRYPT_KEY_SPEC = 0xFFFFFFFF;
struct AcquiredKey {
    PrivateKey key;
    std::uint32_t dwKeySpec = CERT_NCRYPT_KEY_SPEC;
    bool fCallerFree = true;
};
// Whether the certificate came with a private key (file beside it, token, PFX), without opening it or asking for a PIN.
bool CertHasPrivateKey(const CertificateContext& certificate);
// The key that belongs to the certificate. CRYPT_E_NO_KEY_PROPERTY if it has none; NTE_BAD_KEY_STATE if the key is gone
// or its public key is not the certificate's; SCARD_W_... for tokens. A key file with a passphrase asks for it here.
std::optional<AcquiredKey> CryptAcquireCertificatePrivateKey(const CertificateContext& certificate,
                                                             std::uint32_t flags);

// Signs a digest: RSA with PKCS#1 v1.5, ECDSA and DSA as DER Ecdsa-Sig-Value / Dss-Sig-Value. Empty on failure.
// Tokens ask for their PIN here, through the thread's PinPrompt.
Bytes NCryptSignHash(const PrivateKey& key, HashAlgorithm algorithm, ByteView digest);
// What a token said that has no code of its own: the CKR_ name and number, for log and details. Empty if nothing. It is
// of the calling thread's last failing call here.
std::u16string TokenErrorDetail();
// What a person is told about a failed use of a key, in Bulgarian; with the CKR_ name where only that says more. Empty
// for codes that do not come from keys and tokens.
std::u16string TokenErrorMessage(ErrorCode code);

// The keys of a provider: the software keys of the user (empty name), or those of a PKCS#11 module, by its name or
// absolute path, or of a token, by its label. Of a token what it shows without login. Ends with NTE_NO_MORE_ITEMS as
// last error; NTE_KEYSET_NOT_DEF if there is no such provider.
struct NCryptKeyName {
    std::u16string pszName;
    std::u16string pszAlgid;         // "RSA", "ECDSA", "DSA"; empty if unknown without a passphrase or PIN
    CertificateContext certificate;  // that goes with the key; null if there is none
};
std::vector<NCryptKeyName> NCryptEnumKeys(std::u16string_view provider);

// Lets go of the drivers of tokens, which otherwise stay loaded from their first use to the end of the process. Keys
// and certificates that are still held keep theirs.
void ReleaseTokens();

// --- Public keys ---
struct SignatureScheme {
    enum class Kind { rsaPkcs1, rsaPss, ecdsa, dsa };
    Kind kind = Kind::rsaPkcs1;
    HashAlgorithm hash = HashAlgorithm::sha256;
    HashAlgorithm mgf1Hash = HashAlgorithm::sha256;  // PSS
    std::size_t saltLength = 32;                     // PSS, in bytes
    friend bool operator==(const SignatureScheme&, const SignatureScheme&) = default;
};
// Checks a signature over a digest with a SubjectPublicKeyInfo in DER. False with NTE_BAD_SIGNATURE when it does not
// fit, NTE_BAD_ALGID when the key is of another kind, CRYPT_E_BAD_ENCODE when the key does not decode.
bool CryptVerifySignature(ByteView subjectPublicKeyInfo, const SignatureScheme& scheme, ByteView digest,
                          ByteView signature);
// The same with the certificate's key, which is decoded once and kept, as is the last signature that fitted it: each
// message is looked at by two.
bool CryptVerifySignature(const CertificateContext& certificate, const SignatureScheme& scheme, ByteView digest,
                          ByteView signature);

// --- Software keys in files ---
// Puts a PKCS#8 private key (DER, plain) beside the certificate in the user's "MY", mode 0600, encrypted if there is a
// passphrase. Fails with NTE_BAD_KEY_STATE if the public keys differ.
bool ImportPrivateKey(const CertificateContext& certificate, const Secret& pkcs8, const Secret& passphrase);
// The private key that came with the certificate, as plain PKCS#8 in DER. Empty (CRYPT_E_NO_KEY_PROPERTY) without one,
// and for a token's key, which never leaves it.
Secret ExportPrivateKey(const CertificateContext& certificate);

}  // namespace platform

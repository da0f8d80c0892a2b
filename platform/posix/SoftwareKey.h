#pragma once
// What the key classes of this folder share: private keys decoded in memory, the thread's PIN prompt, and the forms in
// which a digest is signed.

#include <memory>
#include <optional>

#include "platform/Keys.h"
#include "platform/posix/Native.h"
#include "platform/posix/OpenSsl.h"

namespace platform::posix {

// A decoded private key with what is asked of it again and again. Safe to share between threads.
struct SoftwareKey {
    EvpKeyPtr key;
    KeyAlgorithm algorithm = KeyAlgorithm::rsa;
    Bytes publicKeyInfo;  // SubjectPublicKeyInfo in DER
};
using SoftwareKeyPtr = std::shared_ptr<const SoftwareKey>;

// Null with NTE_BAD_ALGID for a key of a kind that does not sign here, NTE_BAD_KEY_STATE for one without its public
// part.
SoftwareKeyPtr MakeSoftwareKey(EvpKeyPtr key);
std::shared_ptr<PrivateKey::Impl> MakeMemoryKey(SoftwareKeyPtr key);

// Empty for a key of another kind. A key restricted to PSS is not taken for an RSA key: it may not sign with PKCS#1
// v1.5.
std::optional<KeyAlgorithm> AlgorithmOf(const EVP_PKEY* key);

// A PKCS#8 private key (RFC 5208) from the first key in a PEM text; the old single-algorithm forms are read too. Asks
// the thread's prompt for a passphrase if it is encrypted, once. Null with ERROR_INVALID_PASSWORD for a wrong one,
// SCARD_W_CANCELLED_BY_USER, CRYPT_E_BAD_ENCODE, NTE_BAD_ALGID.
struct PemKey {
    EvpKeyPtr key;
    bool encrypted = false;
};
PemKey ReadPemKey(const Secret& pem, const std::u16string& subject);
// The same from plain PKCS#8 in DER, without anything behind it.
EvpKeyPtr ReadPkcs8(ByteView der);

// DigestInfo (RFC 8017, 9.2) with or without the NULL parameters; empty if the digest has not the algorithm's size.
Bytes DigestInfo(HashAlgorithm algorithm, ByteView digest, bool nullParameters = true);

// Whether a SubjectPublicKeyInfo holds the certificate's public key, whatever way it is encoded.
bool IsKeyOf(const CertificateContext& certificate, ByteView publicKeyInfo);

// The innermost prompt of this thread; empty with SCARD_W_CANCELLED_BY_USER if there is none or the user gives up.
std::optional<Secret> AskThreadForPin(const PinRequest& request);

}  // namespace platform::posix

// Checks of raw signatures. Whatever goes wrong on the way counts as "does not fit": only the crypto library's explicit
// yes is a yes.

#include <openssl/rsa.h>

#include <algorithm>

#include "platform/posix/EncodedKeys.h"
#include "platform/posix/SignatureFacts.h"
#include "platform/posix/SoftwareKey.h"

namespace platform {
namespace {

using posix::DrainErrorQueue;
using posix::EvpKeyContextPtr;

// The message representative is recovered and compared whole with the two encodings that RFC 8017 (A.2.4) allows, so
// that neither a hash that the library lacks nor absent parameters make a good signature look bad, and nothing can hide
// behind the digest.
bool VerifyPkcs1(EVP_PKEY* key, const SignatureScheme& scheme, ByteView digest, ByteView signature) {
    const EvpKeyContextPtr context(EVP_PKEY_CTX_new(key, nullptr));
    if (!context || EVP_PKEY_verify_recover_init(context.get()) != 1) return false;
    if (EVP_PKEY_CTX_set_rsa_padding(context.get(), RSA_PKCS1_PADDING) != 1) return false;
    Bytes recovered(signature.size());
    std::size_t size = recovered.size();
    if (EVP_PKEY_verify_recover(context.get(), recovered.data(), &size, signature.data(), signature.size()) != 1)
        return false;
    recovered.resize(std::min(size, recovered.size()));
    return !recovered.empty() && (recovered == posix::DigestInfo(scheme.hash, digest, true) ||
                                  recovered == posix::DigestInfo(scheme.hash, digest, false));
}

const EVP_MD* MessageDigest(HashAlgorithm algorithm) {
    return EVP_get_digestbyname(std::string(NameOf(algorithm)).c_str());
}

bool VerifyPss(EVP_PKEY* key, const SignatureScheme& scheme, ByteView digest, ByteView signature) {
    const EVP_MD* hash = MessageDigest(scheme.hash);
    const EVP_MD* mgf1 = MessageDigest(scheme.mgf1Hash);
    // No modulus that we read is as long as this; the library takes an int, whose negative values have a meaning.
    constexpr std::size_t kLongestSalt = 4096;
    if (hash == nullptr || mgf1 == nullptr || scheme.saltLength > kLongestSalt) return false;
    const EvpKeyContextPtr context(EVP_PKEY_CTX_new(key, nullptr));
    return context && EVP_PKEY_verify_init(context.get()) == 1 &&
           EVP_PKEY_CTX_set_rsa_padding(context.get(), RSA_PKCS1_PSS_PADDING) == 1 &&
           EVP_PKEY_CTX_set_signature_md(context.get(), hash) == 1 &&
           EVP_PKEY_CTX_set_rsa_mgf1_md(context.get(), mgf1) == 1 &&
           EVP_PKEY_CTX_set_rsa_pss_saltlen(context.get(), static_cast<int>(scheme.saltLength)) == 1 &&
           EVP_PKEY_verify(context.get(), signature.data(), signature.size(), digest.data(), digest.size()) == 1;
}

bool VerifyPlain(EVP_PKEY* key, ByteView digest, ByteView signature) {
    const EvpKeyContextPtr context(EVP_PKEY_CTX_new(key, nullptr));
    return context && EVP_PKEY_verify_init(context.get()) == 1 &&
           EVP_PKEY_verify(context.get(), signature.data(), signature.size(), digest.data(), digest.size()) == 1;
}

bool Fits(EVP_PKEY* key, const SignatureScheme& scheme, ByteView digest, ByteView signature) {
    switch (scheme.kind) {
        case SignatureScheme::Kind::rsaPkcs1:
            return signature.size() == static_cast<std::size_t>(EVP_PKEY_get_size(key)) &&
                   !posix::HasUselessExponent(key) && VerifyPkcs1(key, scheme, digest, signature);
        case SignatureScheme::Kind::rsaPss:
            return !posix::HasUselessExponent(key) && VerifyPss(key, scheme, digest, signature);
        case SignatureScheme::Kind::ecdsa:
        case SignatureScheme::Kind::dsa:
            return VerifyPlain(key, digest, signature);
    }
    return false;
}

bool KindMatches(const EVP_PKEY* key, SignatureScheme::Kind kind) {
    const int type = EVP_PKEY_get_base_id(key);
    switch (kind) {
        case SignatureScheme::Kind::rsaPkcs1:
            return type == EVP_PKEY_RSA;
        case SignatureScheme::Kind::rsaPss:
            return type == EVP_PKEY_RSA || type == EVP_PKEY_RSA_PSS;
        case SignatureScheme::Kind::ecdsa:
            return type == EVP_PKEY_EC;
        case SignatureScheme::Kind::dsa:
            return type == EVP_PKEY_DSA;
    }
    return false;
}

bool VerifyWith(EVP_PKEY* key, const SignatureScheme& scheme, ByteView digest, ByteView signature) {
    if (key == nullptr) {
        DrainErrorQueue();
        SetLastError(CRYPT_E_BAD_ENCODE);
        return false;
    }
    if (!KindMatches(key, scheme.kind)) {
        SetLastError(NTE_BAD_ALGID);
        return false;
    }
    // A digest of another size would be cut or padded by ECDSA and DSA without a word.
    const bool fits =
        digest.size() == DigestSize(scheme.hash) && !signature.empty() && Fits(key, scheme, digest, signature);
    DrainErrorQueue();
    if (!fits) SetLastError(NTE_BAD_SIGNATURE);
    return fits;
}

}  // namespace

bool CryptVerifySignature(ByteView subjectPublicKeyInfo, const SignatureScheme& scheme, ByteView digest,
                          ByteView signature) {
    return VerifyWith(posix::DecodePublicKey(subjectPublicKeyInfo).get(), scheme, digest, signature);
}

bool CryptVerifySignature(const CertificateContext& certificate, const SignatureScheme& scheme, ByteView digest,
                          ByteView signature) {
    if (!certificate) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return false;
    }
    const posix::DecodedCertificate& decoded = *certificate.Backend()->decoded;
    posix::Proof proof{scheme, CopyOf(digest), CopyOf(signature)};
    if (!signature.empty() && decoded.Knows(proof)) return true;
    if (!VerifyWith(decoded.PublicKey(), scheme, digest, signature)) return false;
    decoded.Keep(std::move(proof));
    return true;
}

}  // namespace platform

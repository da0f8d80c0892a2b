// What lies on tokens: keys, and the certificates that go with them.

#include <openssl/core_names.h>
#include <openssl/x509v3.h>

#include <algorithm>

#include "platform/posix/SoftwareKey.h"
#include "platform/posix/Token.h"
#include "platform/posix/TokenFault.h"

namespace platform::posix {
namespace {

ByteView WithoutLeadingZeros(ByteView number) {
    while (!number.empty() && number.front() == 0)
        number = number.subspan(1);
    return number;
}

Bytes NumberOf(const EVP_PKEY* key, const char* name) {
    BIGNUM* number = nullptr;
    if (EVP_PKEY_get_bn_param(key, name, &number) != 1) return {};
    const Owned<BIGNUM, BN_free> owned(number);
    Bytes bytes(static_cast<std::size_t>(BN_num_bytes(number)));
    BN_bn2bin(number, bytes.data());
    return bytes;
}

Bytes PointOf(const EVP_PKEY* key) {
    std::size_t size = 0;
    if (EVP_PKEY_get_octet_string_param(key, OSSL_PKEY_PARAM_ENCODED_PUBLIC_KEY, nullptr, 0, &size) != 1) return {};
    Bytes point(size);
    if (EVP_PKEY_get_octet_string_param(key, OSSL_PKEY_PARAM_ENCODED_PUBLIC_KEY, point.data(), point.size(), &size) !=
        1)
        return {};
    return point;
}

// A point stands in an OCTET STRING (PKCS #11, 2.3.3); some drivers give it bare.
bool SamePoint(ByteView told, ByteView point) {
    if (std::ranges::equal(told, point)) return true;
    const std::size_t header = point.size() < 128 ? 2 : 3;
    return told.size() == point.size() + header && told[0] == 0x04 && std::ranges::equal(told.subspan(header), point);
}

CK_ULONG KeyTypeOf(KeyAlgorithm algorithm) {
    switch (algorithm) {
        case KeyAlgorithm::rsa:
            return CKK_RSA;
        case KeyAlgorithm::ecdsa:
            return CKK_EC;
        case KeyAlgorithm::dsa:
            return CKK_DSA;
    }
    return CKK_RSA;
}

bool SamePublicValue(const EVP_PKEY* key, KeyAlgorithm algorithm, ByteView told) {
    switch (algorithm) {
        case KeyAlgorithm::rsa:
            return std::ranges::equal(WithoutLeadingZeros(told), NumberOf(key, OSSL_PKEY_PARAM_RSA_N));
        case KeyAlgorithm::ecdsa:
            return SamePoint(told, PointOf(key));
        case KeyAlgorithm::dsa:
            return std::ranges::equal(WithoutLeadingZeros(told), NumberOf(key, OSSL_PKEY_PARAM_PUB_KEY));
    }
    return false;
}

// CKA_VALUE of a private key is the secret itself: of those only an RSA modulus is asked for.
Bytes PublicValueOf(const Pkcs11Session& session, const TokenKeyObject& key) {
    if (key.type == CKK_RSA) return session.Attribute(key.handle, CKA_MODULUS);
    if (key.isPrivate) return {};
    return session.Attribute(key.handle, key.type == CKK_EC ? CKA_EC_POINT : CKA_VALUE);
}

// False if the token fails.
bool AddKeys(const Pkcs11Session& session, CK_OBJECT_CLASS objectClass, std::vector<TokenKeyObject>& keys) {
    CK_ATTRIBUTE wanted{CKA_CLASS, &objectClass, sizeof objectClass};
    const auto handles = session.Find({&wanted, 1});
    if (!handles) return false;
    for (const CK_OBJECT_HANDLE handle : *handles) {
        const auto type = session.Number(handle, CKA_KEY_TYPE);
        if (!type || (*type != CKK_RSA && *type != CKK_EC && *type != CKK_DSA)) continue;
        TokenKeyObject key;
        key.handle = handle;
        key.isPrivate = objectClass == CKO_PRIVATE_KEY;
        key.type = *type;
        key.id = session.Attribute(handle, CKA_ID);
        key.label = AsText(session.Attribute(handle, CKA_LABEL));
        key.publicValue = PublicValueOf(session, key);
        keys.push_back(std::move(key));
    }
    return !session.HasFailed();
}

// The id under which to look for the certificate's key; empty optional if the key is not on this token.
std::optional<Bytes> FindKeyFor(const CertificateContext& certificate, const Bytes& certificateId,
                                const std::vector<TokenKeyObject>& keys, bool keysAreHidden) {
    std::optional<Bytes> id;
    for (const TokenKeyObject& key : keys) {
        const KeyMatch match = MatchKey(certificate, certificateId, key);
        if (match == KeyMatch::sure) return key.id;
        if (match == KeyMatch::possible && !id) id = key.id;
    }
    // A token that shows no key at all before login: every certificate on it may have one, except those of authorities,
    // which lie there to complete the chain. The signature proves it later.
    if (!id && keysAreHidden && X509_check_ca(NativeOf(certificate)) != 1) id = certificateId;
    return id;
}

void AddCertificatesOf(const TokenSlot& token, std::vector<CertificateContext>& certificates) {
    const auto session = Pkcs11Session::Open(token);
    if (!session) return;
    CK_OBJECT_CLASS objectClass = CKO_CERTIFICATE;
    CK_CERTIFICATE_TYPE type = CKC_X_509;
    CK_ATTRIBUTE wanted[] = {{CKA_CLASS, &objectClass, sizeof objectClass}, {CKA_CERTIFICATE_TYPE, &type, sizeof type}};
    const auto handles = session->Find(wanted);
    if (!handles || handles->empty()) return;
    const auto held = TokenLogin::HoldLogouts();
    const bool loggedIn = session->IsUserLoggedIn();
    const auto keys = KeysOf(*session);
    if (!keys) return;
    const bool hidden = keys->empty() && !loggedIn && (token.flags & CKF_LOGIN_REQUIRED) != 0;
    for (const CK_OBJECT_HANDLE handle : *handles) {
        const auto certificate = CertCreateCertificateContext(session->Attribute(handle, CKA_VALUE));
        if (NativeOf(certificate) == nullptr) {
            LogHost("Token \"" + token.label + "\": a certificate that cannot be read is skipped.");
            continue;
        }
        if (auto id = FindKeyFor(certificate, session->Attribute(handle, CKA_ID), *keys, hidden))
            certificates.push_back(WithOwnState(certificate, MakeTokenKey(token, std::move(*id), certificate)));
    }
}

}  // namespace

std::optional<std::vector<TokenKeyObject>> KeysOf(const Pkcs11Session& session) {
    std::vector<TokenKeyObject> keys;
    if (!AddKeys(session, CKO_PRIVATE_KEY, keys) || !AddKeys(session, CKO_PUBLIC_KEY, keys)) return std::nullopt;
    return keys;
}

KeyMatch MatchKey(const CertificateContext& certificate, ByteView certificateId, const TokenKeyObject& key) {
    const EVP_PKEY* wanted = PublicKeyOf(certificate);
    const auto algorithm = AlgorithmOf(wanted);
    if (!algorithm || key.type != KeyTypeOf(*algorithm)) return KeyMatch::no;
    if (!key.publicValue.empty())
        return SamePublicValue(wanted, *algorithm, key.publicValue) ? KeyMatch::sure : KeyMatch::no;
    return !key.id.empty() && std::ranges::equal(key.id, certificateId) ? KeyMatch::possible : KeyMatch::no;
}

// Nothing of the listing is kept: a card may be changed between two questions, and a signature that starts with the
// wrong card's certificate is worse than a second of waiting. The drivers stay loaded, which is the dear part.
std::vector<CertificateContext> CertificatesOnTokens() {
    ForgetTokenFault();
    std::vector<CertificateContext> certificates;
    const auto modules = Pkcs11Modules::Load();
    if (!modules) return certificates;
    for (const Pkcs11Module& module : modules->List())
        for (const TokenSlot& token : TokensOf(modules, module))
            AddCertificatesOf(token, certificates);
    return certificates;
}

}  // namespace platform::posix

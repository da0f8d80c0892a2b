// One key on a token.

#include <openssl/core_names.h>
#include <openssl/ec.h>

#include <algorithm>
#include <tuple>

#include "platform/posix/SoftwareKey.h"
#include "platform/posix/Token.h"
#include "platform/posix/TokenFault.h"

namespace platform::posix {
namespace {

constexpr const char* kKeyIsMissing = "the private key is not on the token";
constexpr std::size_t kLongestSignature = 2048;  // RSA with 16384 bits

// The size of the group's order, which bounds what of a digest is signed (FIPS 186-4, 4.6 and 6.4).
std::size_t OrderSize(const EVP_PKEY* key, KeyAlgorithm algorithm) {
    if (algorithm == KeyAlgorithm::ecdsa) return (static_cast<std::size_t>(EVP_PKEY_get_bits(key)) + 7) / 8;
    BIGNUM* order = nullptr;
    if (EVP_PKEY_get_bn_param(key, OSSL_PKEY_PARAM_FFC_Q, &order) != 1) return 0;
    const Owned<BIGNUM, BN_free> owned(order);
    return static_cast<std::size_t>(BN_num_bytes(order));
}

// r and s side by side, as tokens give them, to the SEQUENCE of two INTEGERs (RFC 3279, 2.2.2 and 2.2.3).
Bytes EncodePair(ByteView raw) {
    if (raw.empty() || raw.size() % 2 != 0) return {};
    const int half = static_cast<int>(raw.size() / 2);
    const Owned<ECDSA_SIG, ECDSA_SIG_free> pair(ECDSA_SIG_new());
    Owned<BIGNUM, BN_free> r(BN_bin2bn(raw.data(), half, nullptr));
    Owned<BIGNUM, BN_free> s(BN_bin2bn(raw.data() + half, half, nullptr));
    if (!pair || !r || !s || ECDSA_SIG_set0(pair.get(), r.get(), s.get()) != 1) return {};
    std::ignore = r.release();  // now the pair's
    std::ignore = s.release();
    return EncodeDer<i2d_ECDSA_SIG>(pair.get());
}

CK_MECHANISM_TYPE MechanismOf(KeyAlgorithm algorithm) {
    switch (algorithm) {
        case KeyAlgorithm::rsa:
            return CKM_RSA_PKCS;
        case KeyAlgorithm::ecdsa:
            return CKM_ECDSA;
        case KeyAlgorithm::dsa:
            return CKM_DSA;
    }
    return CKM_RSA_PKCS;
}

SignatureScheme::Kind SchemeOf(KeyAlgorithm algorithm) {
    switch (algorithm) {
        case KeyAlgorithm::rsa:
            return SignatureScheme::Kind::rsaPkcs1;
        case KeyAlgorithm::ecdsa:
            return SignatureScheme::Kind::ecdsa;
        case KeyAlgorithm::dsa:
            return SignatureScheme::Kind::dsa;
    }
    return SignatureScheme::Kind::rsaPkcs1;
}

class TokenKey final : public PrivateKey::Impl {
  public:
    TokenKey(TokenSlot token, Bytes keyId, CertificateContext certificate)
        : token_(std::move(token)),
          keyId_(std::move(keyId)),
          certificate_(std::move(certificate)),
          public_(PublicKeyOf(certificate_)),
          algorithm_(AlgorithmOf(public_).value_or(KeyAlgorithm::rsa)) {}

    std::shared_ptr<Impl> NewHandle() const override {
        return std::make_shared<TokenKey>(token_, keyId_, certificate_);
    }
    KeyAlgorithm Algorithm() const override { return algorithm_; }
    bool IsExportable() const override { return false; }
    std::size_t SignatureSize() const override { return static_cast<std::size_t>(EVP_PKEY_get_size(public_)); }
    Bytes PublicKeyInfo() override { return certificate_.Info().SubjectPublicKeyInfo; }
    bool Unlock() override;
    Bytes Sign(HashAlgorithm algorithm, ByteView digest) override;

  private:
    bool FindToken();
    [[nodiscard]] const TokenKeyObject* PickFrom(const std::vector<TokenKeyObject>& keys) const;
    [[nodiscard]] Bytes InputFor(HashAlgorithm algorithm, ByteView digest) const;
    Bytes SignIn(Pkcs11Session& session, HashAlgorithm algorithm, ByteView digest);
    Bytes SignRaw(Pkcs11Session& session, CK_OBJECT_HANDLE key, Bytes input);

    TokenSlot token_;
    Bytes keyId_;
    CertificateContext certificate_;
    EVP_PKEY* public_;  // the certificate's
    KeyAlgorithm algorithm_;
    std::mutex lock_;
    std::shared_ptr<TokenLogin> login_;  // from the first signature to the end of the handle
};

// The token may have moved to another slot, and after a fork its driver must be started anew.
bool TokenKey::FindToken() {
    auto modules = token_.modules;
    if (!modules->IsOurs()) {
        modules = Pkcs11Modules::Load();
        if (!modules) return false;
    }
    for (const Pkcs11Module& module : modules->List()) {
        if (module.file != token_.module->file) continue;
        for (TokenSlot& token : TokensOf(modules, module)) {
            if (!token.IsSameToken(token_)) continue;
            token_ = std::move(token);
            return true;
        }
    }
    return TokenTrouble(SCARD_W_REMOVED_CARD, "the token is gone", token_.label);
}

// The private key that is surely the certificate's, else the first that may be; null if there is none.
const TokenKeyObject* TokenKey::PickFrom(const std::vector<TokenKeyObject>& keys) const {
    const TokenKeyObject* found = nullptr;
    for (const TokenKeyObject& key : keys) {
        const KeyMatch match = key.isPrivate ? MatchKey(certificate_, keyId_, key) : KeyMatch::no;
        if (match == KeyMatch::sure) return &key;
        if (match == KeyMatch::possible && found == nullptr) found = &key;
    }
    return found;
}

bool TokenKey::Unlock() {
    ForgetTokenFault();
    const std::lock_guard lock(lock_);
    if (public_ == nullptr || !AlgorithmOf(public_)) {
        SetLastError(NTE_BAD_ALGID);
        return false;
    }
    if (!FindToken()) return false;
    const auto session = Pkcs11Session::Open(token_);
    if (!session) return false;
    // Before login the key is hidden.
    if ((token_.flags & CKF_LOGIN_REQUIRED) != 0) return true;
    const auto keys = KeysOf(*session);
    return keys && (PickFrom(*keys) != nullptr || TokenTrouble(NTE_NO_KEY, kKeyIsMissing, token_.label));
}

Bytes TokenKey::Sign(HashAlgorithm algorithm, ByteView digest) {
    ForgetTokenFault();
    const std::lock_guard lock(lock_);
    if (!FindToken()) return {};
    if ((token_.flags & CKF_LOGIN_REQUIRED) != 0) {
        // Asked again each time: a login that does not stand any more is replaced.
        login_ = TokenLogin::For(token_);
        if (!login_) return {};
    }
    // A session for this signature alone: however it ends, no half-done operation is left for the next one.
    const auto session = Pkcs11Session::Open(token_);
    Bytes signature = session ? SignIn(*session, algorithm, digest) : Bytes();
    if (signature.empty()) login_.reset();
    return signature;
}

Bytes TokenKey::InputFor(HashAlgorithm algorithm, ByteView digest) const {
    if (algorithm_ == KeyAlgorithm::rsa) return DigestInfo(algorithm, digest);
    return CopyOf(digest.first(std::min(digest.size(), OrderSize(public_, algorithm_))));
}

Bytes TokenKey::SignIn(Pkcs11Session& session, HashAlgorithm algorithm, ByteView digest) {
    Bytes input = InputFor(algorithm, digest);
    if (input.empty()) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return {};
    }
    const auto keys = KeysOf(session);
    if (!keys) return {};
    const TokenKeyObject* key = PickFrom(*keys);
    if (key == nullptr) {
        TokenTrouble(NTE_NO_KEY, kKeyIsMissing, token_.label);
        return {};
    }
    Bytes signature = SignRaw(session, key->handle, std::move(input));
    if (signature.empty()) return {};
    if (algorithm_ != KeyAlgorithm::rsa) signature = EncodePair(signature);
    // The key was found by what the token says of it. What it signs is the proof.
    const SignatureScheme scheme{.kind = SchemeOf(algorithm_), .hash = algorithm};
    if (CryptVerifySignature(certificate_, scheme, digest, signature)) return signature;
    TokenTrouble(NTE_BAD_KEY_STATE, "the signature does not fit the certificate", token_.label);
    return {};
}

Bytes TokenKey::SignRaw(Pkcs11Session& session, CK_OBJECT_HANDLE key, Bytes input) {
    CK_FUNCTION_LIST* functions = session.Token().Functions();
    CK_MECHANISM mechanism{MechanismOf(algorithm_), nullptr, 0};
    const bool pinForEachUse = session.Flag(key, CKA_ALWAYS_AUTHENTICATE);
    CK_RV result = functions->C_SignInit(session.Handle(), &mechanism, key);
    if (result != CKR_OK) {
        TokenFault(result, "C_SignInit", token_.label);
        return {};
    }
    if (pinForEachUse && !LogIn(session, CKU_CONTEXT_SPECIFIC)) return {};
    // One call with room enough: asking for the size first counts as a use with some tokens.
    Bytes signature(kLongestSignature);
    CK_ULONG size = static_cast<CK_ULONG>(signature.size());
    result =
        functions->C_Sign(session.Handle(), input.data(), static_cast<CK_ULONG>(input.size()), signature.data(), &size);
    if (result != CKR_OK) {
        TokenFault(result, "C_Sign", token_.label);
        return {};
    }
    if (size == 0 || size > signature.size()) {
        TokenTrouble(SCARD_F_INTERNAL_ERROR, "C_Sign gave no signature", token_.label);
        return {};
    }
    signature.resize(size);
    return signature;
}

}  // namespace

std::shared_ptr<PrivateKey::Impl> MakeTokenKey(TokenSlot token, Bytes keyId, CertificateContext certificate) {
    return std::make_shared<TokenKey>(std::move(token), std::move(keyId), std::move(certificate));
}

}  // namespace platform::posix

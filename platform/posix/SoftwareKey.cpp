#include "platform/posix/SoftwareKey.h"

#include <openssl/core_names.h>
#include <openssl/rsa.h>

#include <algorithm>

#include "platform/formats/DerWriter.h"
#include "platform/posix/EncodedKeys.h"

namespace platform::posix {
namespace {

Bytes SignRaw(EVP_PKEY* key, ByteView input, bool pkcs1) {
    const EvpKeyContextPtr context(EVP_PKEY_CTX_new(key, nullptr));
    if (!context || EVP_PKEY_sign_init(context.get()) != 1) return {};
    if (pkcs1 && EVP_PKEY_CTX_set_rsa_padding(context.get(), RSA_PKCS1_PADDING) != 1) return {};
    const int longest = EVP_PKEY_get_size(key);
    if (longest <= 0) return {};
    Bytes signature(static_cast<std::size_t>(longest));
    std::size_t size = signature.size();
    if (EVP_PKEY_sign(context.get(), signature.data(), &size, input.data(), input.size()) != 1) return {};
    signature.resize(size);
    return signature;
}

Bytes NumberOf(const EVP_PKEY* key, const char* name) {
    BIGNUM* read = nullptr;
    if (EVP_PKEY_get_bn_param(key, name, &read) != 1) return {};
    const Owned<BIGNUM, BN_free> number(read);
    Bytes magnitude(static_cast<std::size_t>(BN_num_bytes(number.get())));
    BN_bn2bin(number.get(), magnitude.data());
    return magnitude;
}

// RFC 3279, 2.3.1. Written here, because the library gathers all its encoders first, which takes longer than a
// signature with the key.
Bytes RsaPublicKeyInfo(const EVP_PKEY* key) {
    const Bytes modulus = NumberOf(key, OSSL_PKEY_PARAM_RSA_N), exponent = NumberOf(key, OSSL_PKEY_PARAM_RSA_E);
    if (modulus.empty() || exponent.empty()) return {};
    DerWriter numbers;
    numbers.Sequence([&] { numbers.UnsignedInteger(modulus).UnsignedInteger(exponent); });
    Bytes bits{0};  // no unused bits at the end
    bits.insert(bits.end(), numbers.View().begin(), numbers.View().end());
    DerWriter info;
    info.Sequence([&] { info.AlgorithmWithNull("1.2.840.113549.1.1.1").Value(tag::kBitString, bits); });
    return info.Take();
}

class MemoryKey final : public PrivateKey::Impl {
  public:
    explicit MemoryKey(SoftwareKeyPtr key) : key_(std::move(key)) {}
    std::shared_ptr<Impl> NewHandle() const override { return std::make_shared<MemoryKey>(key_); }
    KeyAlgorithm Algorithm() const override { return key_->algorithm; }
    bool IsExportable() const override { return true; }
    std::size_t SignatureSize() const override { return static_cast<std::size_t>(EVP_PKEY_get_size(key_->key.get())); }
    bool Unlock() override { return true; }
    Bytes PublicKeyInfo() override { return key_->publicKeyInfo; }

    Bytes Sign(HashAlgorithm algorithm, ByteView digest) override {
        const bool rsa = key_->algorithm == KeyAlgorithm::rsa;
        const Bytes input = rsa ? DigestInfo(algorithm, digest) : CopyOf(digest);
        if (digest.size() != DigestSize(algorithm) || input.empty()) {
            SetLastError(ERROR_INVALID_PARAMETER);
            return {};
        }
        Bytes signature = SignRaw(key_->key.get(), input, rsa);
        if (signature.empty()) {
            LogHost("A private key in memory cannot sign: " + DrainErrorQueue());
            SetLastError(NTE_BAD_KEY_STATE);
        }
        return signature;
    }

    Secret ExportPkcs8() override {
        const Owned<PKCS8_PRIV_KEY_INFO, PKCS8_PRIV_KEY_INFO_free> info(EVP_PKEY2PKCS8(key_->key.get()));
        if (!info) return {};
        unsigned char* der = nullptr;
        const int size = i2d_PKCS8_PRIV_KEY_INFO(info.get(), &der);
        if (size <= 0) return {};
        Secret secret(Bytes(der, der + size));
        OPENSSL_clear_free(der, static_cast<std::size_t>(size));
        return secret;
    }

  private:
    SoftwareKeyPtr key_;
};

}  // namespace

std::optional<KeyAlgorithm> AlgorithmOf(const EVP_PKEY* key) {
    switch (key == nullptr ? EVP_PKEY_NONE : EVP_PKEY_get_base_id(key)) {
        case EVP_PKEY_RSA:
            return KeyAlgorithm::rsa;
        case EVP_PKEY_EC:
            return KeyAlgorithm::ecdsa;
        case EVP_PKEY_DSA:
            return KeyAlgorithm::dsa;
        default:
            return std::nullopt;
    }
}

SoftwareKeyPtr MakeSoftwareKey(EvpKeyPtr key) {
    const auto algorithm = AlgorithmOf(key.get());
    if (!algorithm) {
        SetLastError(NTE_BAD_ALGID);
        return nullptr;
    }
    Bytes publicKeyInfo =
        *algorithm == KeyAlgorithm::rsa ? RsaPublicKeyInfo(key.get()) : EncodeDer<i2d_PUBKEY>(key.get());
    if (publicKeyInfo.empty()) {
        DrainErrorQueue();
        SetLastError(NTE_BAD_KEY_STATE);
        return nullptr;
    }
    return std::make_shared<const SoftwareKey>(SoftwareKey{std::move(key), *algorithm, std::move(publicKeyInfo)});
}

std::shared_ptr<PrivateKey::Impl> MakeMemoryKey(SoftwareKeyPtr key) {
    if (!key) return nullptr;
    return std::make_shared<MemoryKey>(std::move(key));
}

std::shared_ptr<PrivateKey::Impl> MakeMemoryKey(EvpKeyPtr key) {
    return MakeMemoryKey(MakeSoftwareKey(std::move(key)));
}

bool IsKeyOf(const CertificateContext& certificate, ByteView publicKeyInfo) {
    // Equal bytes settle nearly every case without decoding, which costs a good part of a signature.
    if (std::ranges::equal(certificate.Info().SubjectPublicKeyInfo, publicKeyInfo)) return !publicKeyInfo.empty();
    const EVP_PKEY* wanted = PublicKeyOf(certificate);
    const EvpKeyPtr found = DecodePublicKey(publicKeyInfo);
    const bool equal = wanted != nullptr && found && EVP_PKEY_eq(wanted, found.get()) == 1;
    DrainErrorQueue();
    return equal;
}

}  // namespace platform::posix

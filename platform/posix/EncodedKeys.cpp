#include "platform/posix/EncodedKeys.h"

#include <openssl/core_names.h>
#include <openssl/param_build.h>

#include <array>
#include <span>

#include "platform/posix/Ber.h"

namespace platform::posix {
namespace {

constexpr std::string_view kRsaEncryption = "1.2.840.113549.1.1.1";
// In the order of an RSAPrivateKey; the first two alone are the public key.
constexpr std::array kNames = {OSSL_PKEY_PARAM_RSA_N,         OSSL_PKEY_PARAM_RSA_E,
                               OSSL_PKEY_PARAM_RSA_D,         OSSL_PKEY_PARAM_RSA_FACTOR1,
                               OSSL_PKEY_PARAM_RSA_FACTOR2,   OSSL_PKEY_PARAM_RSA_EXPONENT1,
                               OSSL_PKEY_PARAM_RSA_EXPONENT2, OSSL_PKEY_PARAM_RSA_COEFFICIENT1};

using BuilderPtr = Owned<OSSL_PARAM_BLD, OSSL_PARAM_BLD_free>;
using ParamsPtr = Owned<OSSL_PARAM, OSSL_PARAM_free>;
using NumberPtr = Owned<BIGNUM, BN_clear_free>;

// A positive INTEGER. Empty for any other.
ByteView ReadMagnitude(BerReader& reader) {
    const auto integer = reader.Next(kBerInteger);
    if (!integer || integer->content.empty() || (integer->content[0] & 0x80) != 0) return {};
    ByteView digits = integer->content;
    while (!digits.empty() && digits[0] == 0)
        digits = digits.subspan(1);
    return digits;
}

// As a secret: the library wipes such a number, and what it copies of it, when it frees them.
NumberPtr NumberOf(ByteView digits) {
    NumberPtr number(BN_secure_new());
    const bool read = number && BN_bin2bn(digits.data(), static_cast<int>(digits.size()), number.get());
    return read ? std::move(number) : nullptr;
}

// Null if a number cannot be taken.
ParamsPtr ParamsOf(std::span<const ByteView> numbers) {
    std::array<NumberPtr, kNames.size()> read;  // the builder copies them only at the end
    const BuilderPtr builder(OSSL_PARAM_BLD_new());
    if (!builder) return nullptr;
    for (std::size_t i = 0; i < numbers.size(); ++i) {
        read[i] = NumberOf(numbers[i]);
        if (!read[i] || OSSL_PARAM_BLD_push_BN(builder.get(), kNames[i], read[i].get()) != 1) return nullptr;
    }
    return ParamsPtr(OSSL_PARAM_BLD_to_param(builder.get()));
}

EvpKeyPtr MakeKey(std::span<const ByteView> numbers, int selection) {
    const ParamsPtr params = ParamsOf(numbers);
    const EvpKeyContextPtr context(EVP_PKEY_CTX_new_from_name(nullptr, "RSA", nullptr));
    EVP_PKEY* key = nullptr;
    const bool made = params && context && EVP_PKEY_fromdata_init(context.get()) == 1 &&
                      EVP_PKEY_fromdata(context.get(), &key, selection, params.get()) == 1;
    DrainErrorQueue();
    return EvpKeyPtr(made ? key : nullptr);
}

}  // namespace

std::optional<RsaPublicKey> ReadRsaPublicKey(ByteView subjectPublicKeyInfo) {
    const auto info = ReadSingleElement(subjectPublicKeyInfo, kBerSequence);
    if (!info) return std::nullopt;
    BerReader fields(info->content);
    const auto algorithm = fields.Next(kBerSequence);
    const auto bits = algorithm ? fields.Next(kBerBitString) : std::nullopt;
    if (!bits || !fields.AtEnd() || bits->content.empty() || bits->content[0] != 0) return std::nullopt;
    BerReader algorithmFields(algorithm->content);
    if (ReadOid(algorithmFields) != kRsaEncryption) return std::nullopt;
    const auto key = ReadSingleElement(bits->content.subspan(1), kBerSequence);
    if (!key) return std::nullopt;
    BerReader numbers(key->content);
    const RsaPublicKey rsa{ReadMagnitude(numbers), ReadMagnitude(numbers)};
    if (rsa.modulus.empty() || rsa.exponent.empty() || !numbers.AtEnd()) return std::nullopt;
    return rsa;
}

EvpKeyPtr DecodePublicKey(ByteView subjectPublicKeyInfo) {
    if (const auto rsa = ReadRsaPublicKey(subjectPublicKeyInfo)) {
        if (auto key = MakeKey(std::array{rsa->modulus, rsa->exponent}, EVP_PKEY_PUBLIC_KEY)) return key;
    }
    const unsigned char* position = subjectPublicKeyInfo.data();
    EvpKeyPtr key(d2i_PUBKEY(nullptr, &position, static_cast<long>(subjectPublicKeyInfo.size())));
    if (position != subjectPublicKeyInfo.data() + subjectPublicKeyInfo.size()) key.reset();
    DrainErrorQueue();
    return key;
}

EvpKeyPtr DecodeRsaPrivateKey(ByteView rsaPrivateKey) {
    const auto key = ReadSingleElement(rsaPrivateKey, kBerSequence);
    if (!key) return nullptr;
    BerReader reader(key->content);
    if (ReadUnsigned(reader) != 0) return nullptr;  // two primes and no more
    std::array<ByteView, kNames.size()> numbers;
    for (ByteView& number : numbers) {
        number = ReadMagnitude(reader);
        if (number.empty()) return nullptr;
    }
    return reader.AtEnd() ? MakeKey(numbers, EVP_PKEY_KEYPAIR) : nullptr;
}

}  // namespace platform::posix

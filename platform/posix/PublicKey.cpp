#include "platform/posix/PublicKey.h"

#include <openssl/core_names.h>
#include <openssl/param_build.h>

#include "platform/posix/Ber.h"

namespace platform::posix {
namespace {

constexpr std::string_view kRsa = "1.2.840.113549.1.1.1";

using BuilderPtr = Owned<OSSL_PARAM_BLD, OSSL_PARAM_BLD_free>;
using ParamsPtr = Owned<OSSL_PARAM, OSSL_PARAM_free>;
using NumberPtr = Owned<BIGNUM, BN_free>;

// A positive INTEGER. Empty for any other.
ByteView ReadMagnitude(BerReader& reader) {
    const auto integer = reader.Next(kBerInteger);
    if (!integer || integer->content.empty() || (integer->content[0] & 0x80) != 0) return {};
    ByteView digits = integer->content;
    while (!digits.empty() && digits[0] == 0)
        digits = digits.subspan(1);
    return digits;
}

NumberPtr NumberOf(ByteView digits) {
    return NumberPtr(BN_bin2bn(digits.data(), static_cast<int>(digits.size()), nullptr));
}

// The library's own decoder looks through all kinds of keys that it knows, each time: that takes longer than two checks
// of a signature with the key.
EvpKeyPtr MakeRsaKey(const RsaPublicKey& rsa) {
    const NumberPtr modulus = NumberOf(rsa.modulus), exponent = NumberOf(rsa.exponent);
    const BuilderPtr builder(OSSL_PARAM_BLD_new());
    if (!modulus || !exponent || !builder ||
        OSSL_PARAM_BLD_push_BN(builder.get(), OSSL_PKEY_PARAM_RSA_N, modulus.get()) != 1 ||
        OSSL_PARAM_BLD_push_BN(builder.get(), OSSL_PKEY_PARAM_RSA_E, exponent.get()) != 1)
        return nullptr;
    const ParamsPtr params(OSSL_PARAM_BLD_to_param(builder.get()));
    const EvpKeyContextPtr context(EVP_PKEY_CTX_new_from_name(nullptr, "RSA", nullptr));
    EVP_PKEY* key = nullptr;
    if (!params || !context || EVP_PKEY_fromdata_init(context.get()) != 1 ||
        EVP_PKEY_fromdata(context.get(), &key, EVP_PKEY_PUBLIC_KEY, params.get()) != 1)
        return nullptr;
    return EvpKeyPtr(key);
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
    if (ReadOid(algorithmFields) != kRsa) return std::nullopt;
    const auto key = ReadSingleElement(bits->content.subspan(1), kBerSequence);
    if (!key) return std::nullopt;
    BerReader numbers(key->content);
    const RsaPublicKey rsa{ReadMagnitude(numbers), ReadMagnitude(numbers)};
    if (rsa.modulus.empty() || rsa.exponent.empty() || !numbers.AtEnd()) return std::nullopt;
    return rsa;
}

EvpKeyPtr DecodePublicKey(ByteView subjectPublicKeyInfo) {
    if (const auto rsa = ReadRsaPublicKey(subjectPublicKeyInfo)) {
        if (EvpKeyPtr key = MakeRsaKey(*rsa)) return key;
    }
    const unsigned char* position = subjectPublicKeyInfo.data();
    EvpKeyPtr key(d2i_PUBKEY(nullptr, &position, static_cast<long>(subjectPublicKeyInfo.size())));
    if (position != subjectPublicKeyInfo.data() + subjectPublicKeyInfo.size()) key.reset();
    DrainErrorQueue();
    return key;
}

}  // namespace platform::posix

// How long a certificate's public key is. Read from the key's own structure: a list of thousands must not pay for the
// crypto library's view of each, and a certificate that the library refuses for another reason still has its key.

#include <algorithm>
#include <array>
#include <bit>

#include "platform/Certificates.h"
#include "platform/posix/Ber.h"
#include "platform/posix/EncodedKeys.h"

namespace platform {
namespace {

using posix::BerReader;

constexpr std::string_view kEllipticCurve = "1.2.840.10045.2.1";

// The usual curves (RFC 5480, 2.1.1.1; RFC 5639); others are left to the crypto library.
struct Curve {
    std::string_view oid;
    std::uint32_t bits;
};
constexpr auto kCurves = std::to_array<Curve>({{"1.2.840.10045.3.1.7", 256},
                                               {"1.3.132.0.34", 384},
                                               {"1.3.132.0.35", 521},
                                               {"1.3.132.0.10", 256},
                                               {"1.3.36.3.3.2.8.1.1.7", 256},
                                               {"1.3.36.3.3.2.8.1.1.11", 384},
                                               {"1.3.36.3.3.2.8.1.1.13", 512}});

std::uint32_t CurveLength(ByteView parameters) {
    BerReader reader(parameters);
    const auto oid = posix::ReadOid(reader);
    const auto found = oid ? std::ranges::find(kCurves, *oid, &Curve::oid) : kCurves.end();
    return found == kCurves.end() ? 0 : found->bits;
}

// SubjectPublicKeyInfo (RFC 5280, 4.1) of the two common kinds. 0 for others.
std::uint32_t CommonLength(ByteView info) {
    if (const auto rsa = posix::ReadRsaPublicKey(info)) {
        const auto leading = static_cast<std::uint32_t>(std::countl_zero(rsa->modulus[0]));
        return rsa->modulus.size() > (1U << 16) ? 0 : static_cast<std::uint32_t>(rsa->modulus.size() * 8) - leading;
    }
    const auto sequence = posix::ReadSingleElement(info, posix::kBerSequence);
    if (!sequence) return 0;
    BerReader reader(sequence->content);
    const auto algorithm = reader.Next(posix::kBerSequence);
    if (!algorithm || !reader.Next(posix::kBerBitString)) return 0;
    BerReader fields(algorithm->content);
    return posix::ReadOid(fields) == kEllipticCurve ? CurveLength(fields.Rest()) : 0;
}

std::uint32_t LibraryLength(ByteView info) {
    const posix::EvpKeyPtr key = posix::DecodePublicKey(info);
    const int bits = key ? EVP_PKEY_get_bits(key.get()) : 0;
    // Keys of the Edwards curves are whole octets (RFC 8032); the library tells the bits of the group's order.
    const bool edwards = key && (EVP_PKEY_is_a(key.get(), "ED25519") == 1 || EVP_PKEY_is_a(key.get(), "X25519") == 1);
    posix::DrainErrorQueue();
    if (bits <= 0) return 0;
    return edwards ? 256 : static_cast<std::uint32_t>(bits);
}

}  // namespace

std::uint32_t CertGetPublicKeyLength(const CertificateContext& certificate) {
    if (!certificate) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return 0;
    }
    const Bytes& info = certificate.Info().SubjectPublicKeyInfo;
    std::uint32_t bits = CommonLength(info);
    if (bits == 0) bits = LibraryLength(info);
    if (bits == 0) SetLastError(CRYPT_E_BAD_ENCODE);
    return bits;
}

}  // namespace platform

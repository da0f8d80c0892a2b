#pragma once
// Public keys of certificates, from their own structure.

#include <optional>

#include "platform/posix/OpenSsl.h"

namespace platform::posix {

// The integers of an RSAPublicKey (RFC 8017, A.1.1), big-endian, without leading zero octets.
struct RsaPublicKey {
    ByteView modulus, exponent;
};
// Of a SubjectPublicKeyInfo (RFC 5280, 4.1) in DER whose algorithm is rsaEncryption. Empty for any other kind and for
// anything odd.
std::optional<RsaPublicKey> ReadRsaPublicKey(ByteView subjectPublicKeyInfo);

// The key that all the bytes of a SubjectPublicKeyInfo in DER make; null if they make none.
EvpKeyPtr DecodePublicKey(ByteView subjectPublicKeyInfo);

}  // namespace platform::posix

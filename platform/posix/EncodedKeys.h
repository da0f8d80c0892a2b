#pragma once
// Keys from their encodings, those of RSA from their own structure (RFC 8017, A.1). The crypto library's decoder looks
// through every kind of key that it knows, each time, which takes longer than to check two signatures, and at its first
// use in a process as long as to make one.

#include <optional>

#include "platform/posix/OpenSsl.h"

namespace platform::posix {

// The integers of an RSAPublicKey, big-endian, without leading zero octets.
struct RsaPublicKey {
    ByteView modulus, exponent;
};
// Of a SubjectPublicKeyInfo (RFC 5280, 4.1) in DER whose algorithm is rsaEncryption. Empty for any other kind and for
// anything odd.
std::optional<RsaPublicKey> ReadRsaPublicKey(ByteView subjectPublicKeyInfo);

// The key that all the bytes of a SubjectPublicKeyInfo in DER make, of whatever kind; null if they make none.
EvpKeyPtr DecodePublicKey(ByteView subjectPublicKeyInfo);

// The key of an RSAPrivateKey in DER with two primes. Null for any other.
EvpKeyPtr DecodeRsaPrivateKey(ByteView rsaPrivateKey);

}  // namespace platform::posix

#pragma once
// Which algorithm identifiers a signature of ours carries.

#include <string_view>

#include "platform/Hash.h"
#include "platform/Keys.h"
#include "platform/formats/DerWriter.h"

namespace toolkit::cms {

// The signatureAlgorithm for a key and the digest it signs. RSA over SHA-1 is named rsaEncryption, which the oldest
// readers know; a digest without an identifier of its own falls to the family's oldest one.
std::string_view SignatureOid(platform::KeyAlgorithm key, platform::HashAlgorithm hash);

// AlgorithmIdentifier with that OID: NULL parameters for RSA, none for the others (RFC 3370, RFC 5754).
void WriteSignatureAlgorithm(platform::DerWriter& out, platform::KeyAlgorithm key, platform::HashAlgorithm hash);

// "RSA", "ECDSA", "DSA".
std::string_view FamilyName(platform::KeyAlgorithm key);

}  // namespace toolkit::cms

#pragma once
// Signature algorithms as SignerInfos name them (RFC 3370, RFC 4056, RFC 5754, RFC 8017), their names, and how to check
// a value with them.

#include <optional>
#include <string>

#include "platform/Keys.h"
#include "platform/formats/Der.h"

namespace platform::cms {

// "sha256" and the like; the OID itself for a digest that nobody here knows.
std::string DigestName(const std::string& oid);

// "RSA-SHA256-PKCSV-1_5", "RSA-PKCSV-1_5" (no digest in the identifier), "RSASSA-PSS", "ECDSA-SHA384", "DSA-SHA1", ...;
// the OID itself for what nobody here knows.
std::string SignatureName(const std::string& oid);

enum class SchemeFault {
    none,
    unknownAlgorithm,   // not one that can be checked here
    badParameters,      // parameters of RSASSA-PSS that do not decode, or that name what cannot be checked
    differentDigests,   // the signature algorithm is tied to another digest than the signer's digestAlgorithm
    needsWholeMessage,  // Ed25519 and Ed448 sign the message and not a digest
};
struct SchemeChoice {
    SchemeFault fault = SchemeFault::none;
    SignatureScheme scheme;
};
// How the signature of a signer with this signatureAlgorithm and this digest is checked. A PKCS#1 v1.5 signature holds
// its digest algorithm inside, which is compared with the signer's digestAlgorithm when the value is checked; so the
// name of the digest in the outer identifier, which nobody signs, is not asked there. ECDSA and DSA values hold no
// such thing: there a disagreement is a fault.
SchemeChoice ChooseScheme(const AlgorithmIdentifier& signature, HashAlgorithm digest);

}  // namespace platform::cms

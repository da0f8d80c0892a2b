#pragma once
// What the SigningAttributes text of a signature asks for.

#include <optional>
#include <string>
#include <string_view>

#include "platform/Hash.h"
#include "toolkit/ClsBase.h"
#include "toolkit/cms/SignedAttributes.h"

namespace toolkit::cms {

struct TimestampOptions {
    bool enabled = false;
    bool addNonce = false;
    bool requestTsaCert = false;
    std::optional<std::string> tsaUrl;
    platform::HashAlgorithm hash = platform::HashAlgorithm::sha256;  // also where the text names none that we know
    std::string policyOid;                                           // empty: any policy of the authority
};

struct SigningOptions {
    AttributeChoice attributes;
    TimestampOptions timestamp;
};

// The digests that signatures and imprints are made with: sha1, sha256, sha384, sha512.
std::optional<platform::HashAlgorithm> SigningHash(std::string_view name);

// A JSON object with the members contentType, messageDigest, signingTime, signingCertificateV2 and, below
// timestampToken, enabled, addNonce, requestTsaCert, tsaUrl, hashAlg, policyOid. A switch is on only where its text is
// exactly "1" or "true". With a timestamp the signature carries no signingTime of its own: the time rests on the token.
SigningOptions ReadSigningOptions(std::string_view json);

}  // namespace toolkit::cms

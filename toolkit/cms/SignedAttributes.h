#pragma once
// The signed attributes of a SignerInfo (RFC 5652, 11; RFC 5035, 3).

#include <vector>

#include "platform/Certificates.h"
#include "platform/Types.h"

namespace toolkit::cms {

struct AttributeChoice {
    bool contentType = false;
    bool messageDigest = false;
    bool signingTime = false;
    bool signingCertificateV2 = false;
};

// The chosen attributes, each in DER, in the order contentType, messageDigest, signingTime, signingCertificateV2.
// That order is kept in the file; it is the order of a DER SET OF only when signingTime is not among them.
std::vector<platform::Bytes> MakeSignedAttributes(const AttributeChoice& choice, platform::ByteView contentDigest,
                                                  platform::FILETIME now, const platform::CertificateContext& signer);

// SignerInfo's way of naming a certificate (RFC 5652, 10.2.4): the issuer as it stands in it, and the serial number.
platform::Bytes IssuerAndSerialNumber(const platform::CertificateContext& certificate);

// An Attribute with one value that is encoded already.
platform::Bytes MakeAttribute(std::string_view oid, platform::ByteView value);

// One element around all attributes, in the order given.
platform::Bytes WrapAttributes(std::uint8_t tag, const std::vector<platform::Bytes>& attributes);

}  // namespace toolkit::cms

#pragma once
// One SignerInfo of a message (RFC 5652 5.3), decoded into views: the bytes it came from must outlive it.

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/formats/Der.h"

namespace platform::cms {

namespace oid {
constexpr std::string_view kData = "1.2.840.113549.1.7.1";
constexpr std::string_view kTstInfo = "1.2.840.113549.1.9.16.1.4";
constexpr std::string_view kContentType = "1.2.840.113549.1.9.3";
constexpr std::string_view kMessageDigest = "1.2.840.113549.1.9.4";
constexpr std::string_view kSigningTime = "1.2.840.113549.1.9.5";
constexpr std::string_view kSigningCertificate = "1.2.840.113549.1.9.16.2.12";
constexpr std::string_view kSigningCertificateV2 = "1.2.840.113549.1.9.16.2.47";
constexpr std::string_view kAlgorithmProtection = "1.2.840.113549.1.9.52";
constexpr std::string_view kTimestampToken = "1.2.840.113549.1.9.16.2.14";
}  // namespace oid

struct Attribute {
    std::string oid;
    ByteView encoded;
    std::vector<DerElement> values;
};

using Attributes = std::vector<Attribute>;

struct SignerInfo {
    ByteView encoded;  // all of it
    std::uint8_t version = 0;
    // Either issuer (a Name as it stands) and serial (the INTEGER's contents), or the subject key identifier.
    ByteView issuer, serial;
    std::optional<Bytes> subjectKeyIdentifier;
    AlgorithmIdentifier digestAlgorithm;
    std::optional<ByteView> signedAttributesContents;  // of the [0]: what stands behind its length
    Attributes signedAttributes;
    AlgorithmIdentifier signatureAlgorithm;
    Bytes signature;
    Attributes unsignedAttributes;
};

// All signers of a message, from the contents of the SET. Empty if any of them does not decode, or if signed attributes
// are there but none stands in them.
std::optional<std::vector<SignerInfo>> ReadSignerInfos(ByteView contents);

// A row of Attributes; empty optional if it does not decode.
std::optional<Attributes> ReadAttributes(DerReader contents);

// The only value of the only attribute of that type; null if there is none, or more of either.
const DerElement* SoleValue(const Attributes& attributes, std::string_view oid);
bool Contains(const Attributes& attributes, std::string_view oid);

}  // namespace platform::cms

#include "toolkit/cms/AttributeNames.h"

#include <array>

#include "toolkit/Base64.h"
#include "toolkit/cms/Names.h"

namespace toolkit::cms {

namespace {

using platform::Bytes;
using platform::DerElement;
using platform::DerReader;
using platform::DerRules;
namespace tag = platform::tag;

struct Row {
    std::string_view oid, name;
};
constexpr std::array kNames = {
    Row{oid::kContentType, "contentType"},
    Row{oid::kMessageDigest, "messageDigest"},
    Row{oid::kSigningTime, "signingTime"},
    Row{"1.2.840.113549.1.9.6", "countersignature"},
    Row{"1.2.840.113549.1.9.15", "sMIMECapabilities"},
    Row{oid::kAlgorithmProtection, "cmsAlgorithmProtection"},
    Row{"1.2.840.113549.1.9.16.2.4", "contentHint"},
    Row{"1.2.840.113549.1.9.16.2.7", "contentIdentifier"},
    Row{"1.2.840.113549.1.9.16.2.10", "contentReference"},
    Row{"1.2.840.113549.1.9.16.2.11", "encrypKeyPref"},
    Row{oid::kSigningCertificate, "signingCertificate"},
    Row{oid::kTimestampToken, "timestampToken"},
    Row{"1.2.840.113549.1.9.16.2.15", "sigPolicyId"},
    Row{"1.2.840.113549.1.9.16.2.16", "commitmentType"},
    Row{"1.2.840.113549.1.9.16.2.17", "signerLocation"},
    Row{"1.2.840.113549.1.9.16.2.18", "signerAttributes"},
    Row{"1.2.840.113549.1.9.16.2.20", "contentTimestamp"},
    Row{"1.2.840.113549.1.9.16.2.21", "certificateRefs"},
    Row{"1.2.840.113549.1.9.16.2.22", "revocationRefs"},
    Row{"1.2.840.113549.1.9.16.2.23", "certificateValues"},
    Row{"1.2.840.113549.1.9.16.2.24", "revocationValues"},
    Row{"1.2.840.113549.1.9.16.2.25", "escTimestamp"},
    Row{"1.2.840.113549.1.9.16.2.26", "certCRLTimestamp"},
    Row{"1.2.840.113549.1.9.16.2.27", "archiveTimestamp"},
    Row{"1.2.840.113549.1.9.16.2.46", "binarySigningTime"},
    Row{oid::kSigningCertificateV2, "signingCertificateV2"},
    Row{"1.2.840.113549.1.9.16.2.48", "archiveTimestampV2"},
    Row{"0.4.0.1733.2.4", "archiveTimestampV3"},
    Row{"0.4.0.1733.2.5", "atsHashIndex"},
};

std::string NameOf(const std::string& oid) {
    for (const auto& row : kNames) {
        if (row.oid == oid) return std::string(row.name);
    }
    return oid;
}

// The hash of the first reference in a signingCertificate or signingCertificateV2.
Bytes ReferencedHash(const DerElement& value) {
    auto fields = DerReader(value.encoded, DerRules::ber).Enter(tag::kSequence);
    auto references = fields ? fields->Enter(tag::kSequence) : std::nullopt;
    auto first = references ? references->Enter(tag::kSequence) : std::nullopt;
    if (!first) return {};
    (void)first->Next(tag::kSequence);  // the algorithm of the second version
    const auto hash = first->Next(tag::kOctetString);
    return hash ? platform::CopyOf(hash->contents) : Bytes{};
}

}  // namespace

AttributeFindings DescribeAttribute(const Attribute& attribute) {
    AttributeFindings findings;
    findings.oid = attribute.oid;
    findings.name = NameOf(attribute.oid);
    if (attribute.values.size() != 1) return findings;
    const DerElement& value = attribute.values.front();
    if (attribute.oid == oid::kContentType) {
        DerReader reader(value.encoded, DerRules::ber);
        findings.members.emplace_back("oid", reader.Oid().value_or(""));
    } else if (attribute.oid == oid::kMessageDigest) {
        findings.members.emplace_back("digest", EncodeBase64(platform::OctetStringValue(value).value_or(Bytes{})));
    } else if (attribute.oid == oid::kSigningTime) {
        findings.members.emplace_back("time", std::string(platform::AsText(value.contents)));
    } else if (attribute.oid == oid::kSigningCertificate || attribute.oid == oid::kSigningCertificateV2) {
        findings.members.emplace_back("hash", UpperHex(ReferencedHash(value)));
    }
    return findings;
}

}  // namespace toolkit::cms

#include "platform/cms/AttributeChecks.h"

#include <algorithm>

#include "platform/Hash.h"
#include "platform/cms/CertificateIds.h"

namespace platform::cms {

namespace {

// Digits down to the minutes, then seconds, fraction and zone in any of the forms of X.680: the text is shown to
// people, so that nothing else may follow.
bool IsTime(const DerElement& value) {
    if (value.tag != tag::kUtcTime && value.tag != tag::kGeneralizedTime) return false;
    const auto text = AsText(value.contents);
    const std::size_t digits = value.tag == tag::kUtcTime ? 10 : 12;
    return text.size() > digits && text.find_first_not_of("0123456789") >= digits &&
           text.find_first_not_of("0123456789.,+-Z") == std::string_view::npos;
}

std::string ContentTypeIn(const DerElement& value) {
    DerReader reader(value.encoded, DerRules::ber);
    return reader.Oid().value_or("");
}

// A missing parameter and NULL mean the same for the algorithms that are used here.
bool Same(const AlgorithmIdentifier& a, const AlgorithmIdentifier& b) {
    return a.oid == b.oid && (a.parameters == b.parameters || (a.HasNoParameters() && b.HasNoParameters()));
}

// CMSAlgorithmProtection (RFC 6211 2): digestAlgorithm, signatureAlgorithm [1], macAlgorithm [2].
bool ProtectsAlgorithmsOf(const SignerInfo& signer, const DerElement& value) {
    auto fields = DerReader(value.encoded, DerRules::ber).Enter(tag::kSequence);
    const auto digest = fields ? fields->Enter(tag::kSequence) : std::nullopt;
    const auto signature = fields ? fields->Enter(tag::ContextConstructed(1)) : std::nullopt;
    if (!digest || !signature) return false;
    const auto digestAlgorithm = ReadAlgorithm(*digest);
    const auto signatureAlgorithm = ReadAlgorithm(*signature);
    return digestAlgorithm && signatureAlgorithm && Same(*digestAlgorithm, signer.digestAlgorithm) &&
           Same(*signatureAlgorithm, signer.signatureAlgorithm);
}

std::u16string NameText(ByteView name) {
    return CertNameToStrW(name, CERT_X500_NAME_STR);
}

// IssuerSerial (RFC 5035 5): GeneralNames with the issuer as directoryName [4], and the serial number. The hash binds
// already, so the name may be encoded with other string types; what it says must agree.
bool IsIssuerAndSerial(DerReader fields, const CertificateContext& certificate) {
    auto names = fields.Enter(tag::kSequence);
    const auto serial = fields.Next(tag::kInteger);
    if (!names || !serial || !std::ranges::equal(Magnitude(serial->contents), SerialOf(certificate))) return false;
    bool sawName = false;
    while (!names->AtEnd()) {
        const auto name = names->Next();
        if (!name) return false;
        if (name->tag != tag::ContextConstructed(4)) continue;
        sawName = true;
        const auto& issuer = certificate.Info().Issuer;
        if (std::ranges::equal(name->contents, issuer) || NameText(name->contents) == NameText(issuer)) {
            return true;
        }
    }
    return !sawName;
}

// ESSCertID or, with an optional algorithm in front, ESSCertIDv2.
Fault CheckReference(DerReader reference, HashAlgorithm hash, const CertificateContext& certificate) {
    const auto expected = reference.Next(tag::kOctetString);
    if (!expected) return "The signing certificate reference does not decode.";
    const Bytes actual = Digest(hash, certificate.Encoded());
    if (actual.empty() || !std::ranges::equal(expected->contents, actual)) {
        return "The signing certificate reference is to another certificate.";
    }
    if (reference.AtEnd()) return {};
    const auto issuerSerial = reference.Enter(tag::kSequence);
    if (!issuerSerial || !IsIssuerAndSerial(*issuerSerial, certificate)) {
        return "Issuer and serial number of the signing certificate reference are of another certificate.";
    }
    return {};
}

Fault CheckAttribute(const DerElement& value, bool second, const CertificateContext& certificate) {
    auto fields = DerReader(value.encoded, DerRules::ber).Enter(tag::kSequence);
    auto references = fields ? fields->Enter(tag::kSequence) : std::nullopt;
    auto first = references ? references->Enter(tag::kSequence) : std::nullopt;
    if (!first) return "The signing certificate reference does not decode.";
    if (!second) return CheckReference(*first, HashAlgorithm::sha1, certificate);
    auto hash = std::optional(HashAlgorithm::sha256);
    if (const auto contents = first->Enter(tag::kSequence)) {
        const auto algorithm = ReadAlgorithm(*contents);
        hash = algorithm ? HashFromOid(algorithm->oid) : std::nullopt;
    }
    if (!hash) return "The signing certificate reference has an unsupported digest algorithm.";
    return CheckReference(*first, *hash, certificate);
}

}  // namespace

Fault CheckUnsignedAttributes(const SignerInfo& signer) {
    for (const auto signedOnly : {oid::kContentType, oid::kMessageDigest, oid::kSigningTime}) {
        if (Contains(signer.unsignedAttributes, signedOnly)) {
            return "An attribute that must be signed is not: " + std::string(signedOnly) + ".";
        }
    }
    return {};
}

Fault CheckSignedAttributes(const SignerInfo& signer, const std::string& contentType) {
    const auto& attributes = signer.signedAttributes;
    const DerElement* type = SoleValue(attributes, oid::kContentType);
    if (type == nullptr) return "The signed attributes need exactly one contentType.";
    if (ContentTypeIn(*type) != contentType) return "The signed contentType is not the type of the content.";
    if (MessageDigestOf(signer).empty()) return "The signed attributes need exactly one messageDigest.";
    for (const auto single : {oid::kSigningTime, oid::kSigningCertificate, oid::kSigningCertificateV2}) {
        if (Contains(attributes, single) && SoleValue(attributes, single) == nullptr) {
            return "The signed attributes hold more than one value of " + std::string(single) + ".";
        }
    }
    const DerElement* time = SoleValue(attributes, oid::kSigningTime);
    if (time != nullptr && !IsTime(*time)) return "The signingTime is no time.";
    if (Contains(attributes, oid::kAlgorithmProtection)) {
        const DerElement* protection = SoleValue(attributes, oid::kAlgorithmProtection);
        if (protection == nullptr || !ProtectsAlgorithmsOf(signer, *protection)) {
            return "The signed algorithms are not those of the signer.";
        }
    }
    return {};
}

Bytes MessageDigestOf(const SignerInfo& signer) {
    const DerElement* value = SoleValue(signer.signedAttributes, oid::kMessageDigest);
    return value != nullptr ? OctetStringValue(*value).value_or(Bytes{}) : Bytes{};
}

Fault CheckSigningCertificate(const SignerInfo& signer, const CertificateContext& certificate) {
    for (const auto reference : {oid::kSigningCertificate, oid::kSigningCertificateV2}) {
        const DerElement* value = SoleValue(signer.signedAttributes, reference);
        if (value == nullptr) continue;
        Fault fault = CheckAttribute(*value, reference == oid::kSigningCertificateV2, certificate);
        if (!fault.empty()) return fault;
    }
    return {};
}

std::string SigningTimeOf(const SignerInfo& signer) {
    const DerElement* value = SoleValue(signer.signedAttributes, oid::kSigningTime);
    return value != nullptr && IsTime(*value) ? std::string(AsText(value->contents)) : std::string{};
}

}  // namespace platform::cms

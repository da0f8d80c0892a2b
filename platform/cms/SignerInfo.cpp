#include "platform/cms/SignerInfo.h"

#include <algorithm>

namespace platform::cms {

namespace {

std::optional<Attribute> ReadAttribute(const DerElement& element) {
    DerReader fields(element.contents, DerRules::ber);
    Attribute attribute;
    attribute.encoded = element.encoded;
    const auto oid = fields.Oid();
    auto values = fields.Enter(tag::kSet);
    if (!oid || !values || !fields.AtEnd()) return std::nullopt;
    attribute.oid = *oid;
    while (!values->AtEnd()) {
        const auto value = values->Next();
        if (!value) return std::nullopt;
        attribute.values.push_back(*value);
    }
    return attribute;
}

bool ReadIdentifier(DerReader& fields, SignerInfo& signer) {
    if (auto sid = fields.Enter(tag::kSequence)) {
        const auto issuer = sid->Next(tag::kSequence);
        const auto serial = sid->Next(tag::kInteger);
        if (!issuer || !serial || serial->contents.empty() || !sid->AtEnd()) return false;
        signer.issuer = issuer->encoded;
        signer.serial = serial->contents;
        return true;
    }
    // [0] IMPLICIT OCTET STRING; some writers tag it explicitly.
    if (const auto implicit = fields.Next(tag::Context(0))) {
        signer.subjectKeyIdentifier = CopyOf(implicit->contents);
        return true;
    }
    const auto constructed = fields.Next(tag::ContextConstructed(0));
    if (!constructed) return false;
    const auto inner = SoleElement(constructed->contents, tag::kOctetString, DerRules::ber);
    if (inner) signer.subjectKeyIdentifier = CopyOf(inner->contents);
    return inner.has_value();
}

bool ReadAlgorithmInto(DerReader& fields, AlgorithmIdentifier& algorithm) {
    const auto contents = fields.Enter(tag::kSequence);
    auto read = contents ? ReadAlgorithm(*contents) : std::nullopt;
    if (read) algorithm = std::move(*read);
    return read.has_value();
}

bool ReadSignedAttributes(DerReader& fields, SignerInfo& signer) {
    if (!fields.NextIs(tag::ContextConstructed(0))) return true;
    const auto element = fields.Next();
    auto attributes = element ? ReadAttributes(DerReader(element->contents, DerRules::ber)) : std::nullopt;
    if (!attributes || attributes->empty()) return false;
    signer.signedAttributesContents = element->contents;
    signer.signedAttributes = std::move(*attributes);
    return true;
}

bool ReadUnsignedAttributes(DerReader& fields, SignerInfo& signer) {
    if (!fields.NextIs(tag::ContextConstructed(1))) return true;
    const auto contents = fields.Enter(tag::ContextConstructed(1));
    auto attributes = contents ? ReadAttributes(*contents) : std::nullopt;
    if (attributes) signer.unsignedAttributes = std::move(*attributes);
    return attributes.has_value();
}

bool ReadSignature(DerReader& fields, SignerInfo& signer) {
    const auto element = fields.Next();
    auto octets = element ? OctetStringValue(*element) : std::nullopt;
    if (octets) signer.signature = std::move(*octets);
    return octets.has_value();
}

bool ReadVersion(DerReader& fields, SignerInfo& signer) {
    const auto version = fields.Next(tag::kInteger);
    if (version && version->contents.size() == 1) signer.version = version->contents.front();
    return version.has_value();
}

bool ReadSignerInfo(DerReader fields, SignerInfo& signer) {
    return ReadVersion(fields, signer) && ReadIdentifier(fields, signer) &&
           ReadAlgorithmInto(fields, signer.digestAlgorithm) && ReadSignedAttributes(fields, signer) &&
           ReadAlgorithmInto(fields, signer.signatureAlgorithm) && ReadSignature(fields, signer) &&
           ReadUnsignedAttributes(fields, signer) && fields.AtEnd();
}

}  // namespace

std::optional<Attributes> ReadAttributes(DerReader contents) {
    Attributes attributes;
    while (!contents.AtEnd()) {
        const auto element = contents.Next(tag::kSequence);
        auto attribute = element ? ReadAttribute(*element) : std::nullopt;
        if (!attribute) return std::nullopt;
        attributes.push_back(std::move(*attribute));
    }
    return attributes;
}

std::optional<std::vector<SignerInfo>> ReadSignerInfos(ByteView contents) {
    std::vector<SignerInfo> signers;
    DerReader set(contents, DerRules::ber);
    while (!set.AtEnd()) {
        const auto element = set.Next(tag::kSequence);
        if (!element) return std::nullopt;
        signers.emplace_back().encoded = element->encoded;
        if (!ReadSignerInfo(DerReader(element->contents, DerRules::ber), signers.back())) return std::nullopt;
    }
    return signers;
}

const DerElement* SoleValue(const Attributes& attributes, std::string_view oid) {
    const Attribute* found = nullptr;
    for (const auto& attribute : attributes) {
        if (attribute.oid != oid) continue;
        if (found != nullptr) return nullptr;
        found = &attribute;
    }
    return found != nullptr && found->values.size() == 1 ? &found->values.front() : nullptr;
}

bool Contains(const Attributes& attributes, std::string_view oid) {
    return std::any_of(attributes.begin(), attributes.end(), [&](const Attribute& one) { return one.oid == oid; });
}

}  // namespace platform::cms

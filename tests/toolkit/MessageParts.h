#pragma once
// A SignedData in DER taken to pieces, so that a test can change one of them and put the message together again.

#include <stdexcept>
#include <vector>

#include "platform/formats/Der.h"
#include "platform/formats/DerWriter.h"

namespace testing_support {

// The elements of a SEQUENCE, SET or context tag in DER, each with its header.
inline std::vector<platform::Bytes> ElementsOf(platform::ByteView element) {
    platform::DerReader outer(element);
    const auto whole = outer.Next();
    if (!whole) throw std::runtime_error("no DER");
    std::vector<platform::Bytes> parts;
    for (platform::DerReader inner(whole->contents); !inner.AtEnd();) {
        const auto part = inner.Next();
        if (!part) throw std::runtime_error("no DER inside");
        parts.push_back(platform::CopyOf(part->encoded));
    }
    return parts;
}

inline platform::Bytes Wrap(std::uint8_t tag, const std::vector<platform::Bytes>& parts) {
    platform::DerWriter out;
    out.Nested(tag, [&] {
        for (const auto& part : parts)
            out.Raw(part);
    });
    return out.Take();
}

// An Attribute (RFC 5652, 5.3).
inline platform::Bytes Attribute(std::string_view oid, const std::vector<platform::Bytes>& values) {
    platform::DerWriter type;
    type.Oid(oid);
    return Wrap(platform::tag::kSequence, {type.Take(), Wrap(platform::tag::kSet, values)});
}

struct MessageParts {
    // version, digestAlgorithms, encapContentInfo, certificates (perhaps), signerInfos: encoded
    std::vector<platform::Bytes> fields;
    std::vector<platform::Bytes> certificates;
    // Of each signer the encoded fields: version, sid, digestAlgorithm, [signedAttrs], signatureAlgorithm, signature
    std::vector<std::vector<platform::Bytes>> signers;

    explicit MessageParts(platform::ByteView message) {
        fields = ElementsOf(ElementsOf(ElementsOf(message).at(1)).at(0));
        for (const auto& signer : ElementsOf(fields.back()))
            signers.push_back(ElementsOf(signer));
        fields.pop_back();
        if (fields.back().front() == platform::tag::ContextConstructed(0)) {
            certificates = ElementsOf(fields.back());
            fields.pop_back();
        }
    }

    [[nodiscard]] platform::Bytes Assemble() const {
        std::vector<platform::Bytes> signedData = fields;
        if (!certificates.empty()) signedData.push_back(Wrap(platform::tag::ContextConstructed(0), certificates));
        std::vector<platform::Bytes> infos;
        for (const auto& signer : signers)
            infos.push_back(Wrap(platform::tag::kSequence, signer));
        signedData.push_back(Wrap(platform::tag::kSet, infos));
        platform::DerWriter type;
        type.Oid("1.2.840.113549.1.7.2");
        const auto inner = Wrap(platform::tag::ContextConstructed(0), {Wrap(platform::tag::kSequence, signedData)});
        return Wrap(platform::tag::kSequence, {type.Take(), inner});
    }

    void SetContent(std::string_view type, platform::ByteView content) {
        platform::DerWriter out;
        out.Sequence([&] {
            out.Oid(type);
            out.Nested(platform::tag::ContextConstructed(0), [&] { out.OctetString(content); });
        });
        fields.at(2) = out.Take();
    }
};

}  // namespace testing_support

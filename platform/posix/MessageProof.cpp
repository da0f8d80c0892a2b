#include "platform/posix/MessageProof.h"

#include "platform/formats/DerWriter.h"

namespace platform::posix {
namespace {

constexpr std::string_view kOcspInfo = "1.3.6.1.5.5.7.16.2", kOcspBasic = "1.3.6.1.5.5.7.48.1.1",
                           kCertificateValues = "1.2.840.113549.1.9.16.2.23",
                           kRevocationValues = "1.2.840.113549.1.9.16.2.24";

// A sender may put in as many as he likes, and each costs whoever asks them.
constexpr std::size_t kMostOcspAnswers = 32;
constexpr std::size_t kMostValues = 256;

// The elements of a SEQUENCE's contents.
void AddElements(DerReader reader, std::vector<ByteView>& elements) {
    while (elements.size() < kMostValues) {
        const auto element = reader.Next(tag::kSequence);
        if (!element) return;
        elements.push_back(element->encoded);
    }
}

Bytes ResponseOf(ByteView basic) {
    DerWriter out;
    out.Sequence([&] {
        out.Value(tag::kEnumerated, Bytes{0});
        out.Nested(tag::ContextConstructed(0), [&] {
            out.Sequence([&] {
                out.Oid(kOcspBasic);
                out.OctetString(basic);
            });
        });
    });
    return out.Take();
}

}  // namespace

void MessageProof::AddOtherInfo(ByteView info) {
    DerReader outer(info, DerRules::ber);
    auto fields = outer.Enter(tag::ContextConstructed(1));
    const auto format = fields ? fields->Oid() : std::nullopt;
    if (format != kOcspInfo) return;
    if (const auto response = fields->Next(tag::kSequence)) AddOcsp(CopyOf(response->encoded));
}

void MessageProof::AddAttributes(const cms::Attributes& unsignedAttributes) {
    for (const cms::Attribute& attribute : unsignedAttributes) {
        const bool isCertificates = attribute.oid == kCertificateValues;
        if (!isCertificates && attribute.oid != kRevocationValues) continue;
        for (const DerElement& value : attribute.values) {
            if (value.tag != tag::kSequence) continue;
            if (isCertificates) {
                AddElements(DerReader(value.contents, DerRules::ber), certificates);
            } else {
                AddRevocationValues(value.contents);
            }
        }
    }
}

// RevocationValues ::= SEQUENCE { crlVals [0], ocspVals [1], otherRevVals [2] }, explicitly tagged; BasicOCSPResponse.
void MessageProof::AddRevocationValues(ByteView values) {
    DerReader fields(values, DerRules::ber);
    if (auto lists = fields.Enter(tag::ContextConstructed(0))) {
        if (const auto list = lists->Enter(tag::kSequence)) AddElements(*list, crls);
    }
    auto answers = fields.Enter(tag::ContextConstructed(1));
    const auto list = answers ? answers->Enter(tag::kSequence) : std::nullopt;
    std::vector<ByteView> basics;
    if (list) AddElements(*list, basics);
    for (const ByteView basic : basics)
        AddOcsp(ResponseOf(basic));
}

void MessageProof::AddOcsp(Bytes answer) {
    if (ocspAnswers.size() < kMostOcspAnswers) ocspAnswers.push_back(std::move(answer));
}

}  // namespace platform::posix

#include "platform/cms/SignedDataWriter.h"

#include <algorithm>

#include "platform/formats/DerWriter.h"

namespace platform::cms {
namespace {

using Sink = std::function<bool(ByteView)>;

constexpr std::string_view kSignedData = "1.2.840.113549.1.7.2";

void Append(Bytes& bytes, ByteView more) {
    bytes.insert(bytes.end(), more.begin(), more.end());
}

// The identifier octets of the elements in a row; empty optional if they do not decode.
std::optional<Bytes> TagsIn(ByteView contents) {
    Bytes tags;
    DerReader reader(contents, DerRules::ber);
    while (!reader.AtEnd()) {
        const auto element = reader.Next();
        if (!element) return std::nullopt;
        tags.push_back(element->tag);
    }
    return tags;
}

bool Has(const Bytes& tags, std::uint8_t tag) {
    return std::ranges::find(tags, tag) != tags.end();
}

// The lowest version that RFC 5652 5.1 allows for these parts.
std::optional<std::uint8_t> VersionFor(const SignedDataParts& parts, const std::string& contentType) {
    const auto certificates = TagsIn(parts.certificates), crls = TagsIn(parts.crls);
    const auto signers = ReadSignerInfos(parts.signerInfos);
    if (!certificates || !crls || !signers) return std::nullopt;
    std::uint8_t version = 1;
    const bool laterSigner =
        std::ranges::any_of(*signers, [](const SignerInfo& signer) { return signer.version == 3; });
    if (laterSigner || contentType != oid::kData || Has(*certificates, tag::ContextConstructed(1))) version = 3;
    if (Has(*certificates, tag::ContextConstructed(2))) version = 4;
    if (Has(*certificates, tag::ContextConstructed(3)) || Has(*crls, tag::ContextConstructed(1))) version = 5;
    return std::max(version, parts.leastVersion);
}

// Head, content and tail of the message: what is written around the bytes that stay in their source.
class Writing {
  public:
    Writing(const SignedDataParts& parts, const Sink& sink) : parts_(parts), sink_(sink) {}

    WriteOutcome Run() {
        const auto version = VersionFor(parts_, parts_.contentType);
        if (!version) return WriteOutcome::malformed;
        const Bytes tail = Tail();
        const auto head = Head(*version, tail.size());
        if (!head) return WriteOutcome::malformed;
        if (!sink_(*head)) return WriteOutcome::stopped;
        const auto outcome = Content();
        if (outcome != WriteOutcome::ok) return outcome;
        return sink_(tail) ? WriteOutcome::ok : WriteOutcome::stopped;
    }

  private:
    [[nodiscard]] SourceRange ContentRange() const {
        if (parts_.contentSource == nullptr) return {};
        return parts_.encapContentInfo.value_or(SourceRange{0, parts_.contentSource->Size()});
    }

    [[nodiscard]] Bytes Tail() const {
        DerWriter out;
        if (!parts_.certificates.empty()) out.Value(tag::ContextConstructed(0), parts_.certificates);
        if (!parts_.crls.empty()) out.Value(tag::ContextConstructed(1), parts_.crls);
        out.Value(tag::kSet, parts_.signerInfos);
        return out.Take();
    }

    // What of encapContentInfo stands ahead of the source's bytes.
    void ContentHead(DerWriter& out, std::uint64_t octets) const {
        if (parts_.encapContentInfo) return;
        DerWriter type;
        type.Oid(parts_.contentType);
        if (parts_.contentSource == nullptr) {
            out.Value(tag::kSequence, type.View());
            return;
        }
        const std::uint64_t octetString = DerHeaderSize(octets) + octets;
        const std::uint64_t explicitTag = DerHeaderSize(octetString) + octetString;
        out.Raw(DerHeader(tag::kSequence, type.View().size() + explicitTag)).Raw(type.View());
        out.Raw(DerHeader(tag::ContextConstructed(0), octetString)).Raw(DerHeader(tag::kOctetString, octets));
    }

    [[nodiscard]] std::optional<Bytes> Head(std::uint8_t version, std::uint64_t tailSize) const {
        const SourceRange range = ContentRange();
        const std::uint64_t copied = range.end - range.offset;
        DerWriter fields;
        fields.Integer(version).Value(tag::kSet, parts_.digestAlgorithms);
        ContentHead(fields, copied);
        DerWriter type;
        type.Oid(kSignedData);
        const std::uint64_t signedData = fields.View().size() + copied + tailSize;
        const std::uint64_t explicitTag = DerHeaderSize(signedData) + signedData;
        DerWriter out;
        out.Raw(DerHeader(tag::kSequence, type.View().size() + DerHeaderSize(explicitTag) + explicitTag));
        out.Raw(type.View()).Raw(DerHeader(tag::ContextConstructed(0), signedData + DerHeaderSize(signedData)));
        out.Raw(DerHeader(tag::kSequence, signedData)).Raw(fields.View());
        return fields.Valid() ? std::optional(out.Take()) : std::nullopt;
    }

    [[nodiscard]] WriteOutcome Content() const {
        const SourceRange range = ContentRange();
        for (std::uint64_t at = range.offset; at < range.end;) {
            const auto piece = parts_.contentSource->View(at, 1, range.end - at);
            if (!piece || piece->empty()) return WriteOutcome::readFault;
            if (!sink_(*piece)) return WriteOutcome::stopped;
            at += piece->size();
        }
        return WriteOutcome::ok;
    }

    const SignedDataParts& parts_;
    const Sink& sink_;
};

}  // namespace

std::optional<SignedDataParts> PartsOf(ByteSource& source, const SignedDataMessage& message) {
    SignedDataParts parts;
    parts.leastVersion = message.version;
    parts.digestAlgorithms = message.encodedDigestAlgorithms;
    parts.contentType = message.contentType;
    parts.certificates = message.certificates;
    parts.signerInfos = message.signerInfos;
    parts.contentSource = &source;
    parts.encapContentInfo = message.encapContentInfo;
    if (message.crls) {
        auto crls = ReadContents(source, *message.crls);
        if (!crls) return std::nullopt;
        parts.crls = std::move(*crls);
    }
    return parts;
}

void AddSigner(SignedDataParts& parts, const SignerInfo& signer) {
    bool announced = false;
    DerReader algorithms(parts.digestAlgorithms, DerRules::ber);
    while (const auto contents = algorithms.Enter(tag::kSequence)) {
        const auto algorithm = ReadAlgorithm(*contents);
        announced = announced || (algorithm && algorithm->oid == signer.digestAlgorithm.oid);
    }
    if (!announced) {
        DerWriter algorithm;
        algorithm.Sequence([&] { algorithm.Oid(signer.digestAlgorithm.oid).Raw(signer.digestAlgorithm.parameters); });
        Append(parts.digestAlgorithms, algorithm.View());
    }
    Append(parts.signerInfos, signer.encoded);
}

void AddCertificate(SignedDataParts& parts, ByteView encoded) {
    DerReader there(parts.certificates, DerRules::ber);
    while (const auto certificate = there.Next()) {
        if (std::ranges::equal(certificate->encoded, encoded)) return;
    }
    Append(parts.certificates, encoded);
}

WriteOutcome WriteSignedData(const SignedDataParts& parts, const std::function<bool(ByteView)>& sink) {
    return Writing(parts, sink).Run();
}

}  // namespace platform::cms

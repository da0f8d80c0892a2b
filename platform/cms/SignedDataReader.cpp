#include "platform/cms/SignedDataReader.h"

#include "platform/cms/SignerInfo.h"
#include "platform/cms/SourceCursor.h"

namespace platform::cms {

namespace {

constexpr std::string_view kSignedData = "1.2.840.113549.1.7.2";
constexpr std::uint8_t kConstructedOctetString = tag::kOctetString | tag::kConstructed;
constexpr std::size_t kDeepestString = 32;
// Signatures that were put into a place of fixed size, as in PDF, carry many zeros.
constexpr std::uint64_t kMostPadding = std::uint64_t{1} << 20;

using Take = std::function<bool(ByteView)>;

// Everything of one message. A step answers false after it has noted the outcome.
class Reading {
  public:
    Reading(ByteSource& source, const SourceRange& range, ContentReceiver& receiver, SignedDataMessage& message)
        : source_(source), cursor_(source, range.offset, range.end), receiver_(receiver), message_(message) {}

    ReadOutcome Run() { return Outcome(SignedContentInfo() && SignedData() && Trailing()); }

    ReadOutcome RunAnyType(ContentInfoHead& head) { return Outcome(AnyContentInfo(head) && Trailing()); }

    ReadOutcome RunContent(const Take& take) {
        ContentPlace again;
        return Outcome(Pieces(&take, again));
    }

  private:
    [[nodiscard]] ReadOutcome Outcome(bool done) const {
        if (done) return ReadOutcome::ok;
        return cursor_.ReadFailed() ? ReadOutcome::readFault : outcome_;
    }

    bool Fail(ReadOutcome outcome) {
        outcome_ = outcome;
        return false;
    }

    // The whole next element, in memory.
    bool Element(std::uint8_t expected, Bytes& bytes) {
        if (!cursor_.NextIs(expected)) return false;
        const std::uint64_t start = cursor_.Position();
        const bool whole = cursor_.Skip(kMostMetadata);
        if (cursor_.Position() - start > kMostMetadata) return Fail(ReadOutcome::tooLarge);
        if (!whole) return false;
        auto copy = source_.Copy(start, static_cast<std::size_t>(cursor_.Position() - start));
        if (!copy) return Fail(ReadOutcome::readFault);
        bytes = std::move(*copy);
        return true;
    }

    bool Oid(std::string& text) {
        Bytes bytes;
        if (!Element(tag::kOid, bytes)) return false;
        const auto oid = DerReader(bytes, DerRules::ber).Oid();
        if (oid) text = *oid;
        return oid.has_value();
    }

    bool SignedContentInfo() {
        std::string type;
        if (!cursor_.Enter(tag::kSequence) || !Oid(type)) return false;
        if (type != kSignedData) return Fail(ReadOutcome::notSignedData);
        return cursor_.Enter(tag::ContextConstructed(0));
    }

    bool AnyContentInfo(ContentInfoHead& head) {
        if (!cursor_.Enter(tag::kSequence) || !Oid(head.type)) return false;
        if (cursor_.AtEnd()) return cursor_.Leave();
        if (!cursor_.Enter(tag::ContextConstructed(0))) return false;
        const bool walked = head.type == oid::kData ? PlaceOf(head.data, nullptr) : cursor_.Skip();
        return walked && cursor_.Leave() && cursor_.Leave();
    }

    bool SignedData() {
        if (!cursor_.Enter(tag::kSequence) || !Version()) return false;
        if (!DigestAlgorithms() || !EncapsulatedContent() || !Certificates() || !Crls() || !SignerInfos()) return false;
        return cursor_.Leave() && cursor_.Leave() && cursor_.Leave();
    }

    bool Version() {
        Bytes bytes;
        if (!Element(tag::kInteger, bytes)) return false;
        const auto version = SoleElement(bytes, tag::kInteger, DerRules::ber);
        if (version && version->contents.size() == 1) message_.version = version->contents.front();
        return version.has_value();
    }

    bool DigestAlgorithms() {
        if (!Contents(tag::kSet, message_.encodedDigestAlgorithms)) return false;
        DerReader set(message_.encodedDigestAlgorithms, DerRules::ber);
        while (!set.AtEnd()) {
            const auto contents = set.Enter(tag::kSequence);
            auto algorithm = contents ? ReadAlgorithm(*contents) : std::nullopt;
            if (!algorithm) return false;
            message_.digestAlgorithms.push_back(std::move(*algorithm));
        }
        return true;
    }

    bool EncapsulatedContent() {
        message_.encapContentInfo.offset = cursor_.Position();
        if (!cursor_.Enter(tag::kSequence) || !Oid(message_.contentType)) return false;
        const bool wanted = receiver_.Start(message_);
        if (!cursor_.AtEnd()) {
            if (!cursor_.Enter(tag::ContextConstructed(0)) || !Content(wanted) || !cursor_.Leave()) return false;
        }
        if (!cursor_.Leave()) return false;
        message_.encapContentInfo.end = cursor_.Position();
        return true;
    }

    bool Content(bool wanted) {
        const Take take = [this](ByteView piece) { return receiver_.Take(piece); };
        return PlaceOf(message_.content, wanted ? &take : nullptr);
    }
    bool PlaceOf(std::optional<ContentPlace>& content, const Take* take);
    bool Pieces(const Take* take, ContentPlace& place);
    bool Pass(std::uint64_t size, const Take* take, ContentPlace& place);

    bool Certificates() {
        if (!cursor_.NextIs(tag::ContextConstructed(0))) return true;
        return Contents(tag::ContextConstructed(0), message_.certificates);
    }

    bool Crls() {
        if (!cursor_.NextIs(tag::ContextConstructed(1))) return true;
        SourceRange place;
        place.offset = cursor_.Position();
        if (!cursor_.Skip()) return false;
        place.end = cursor_.Position();
        message_.crls = place;
        return true;
    }

    bool SignerInfos() { return Contents(tag::kSet, message_.signerInfos); }

    bool Contents(std::uint8_t expected, Bytes& contents) {
        Bytes bytes;
        if (!Element(expected, bytes)) return false;
        const auto element = SoleElement(bytes, expected, DerRules::ber);
        if (element) contents = CopyOf(element->contents);
        return element.has_value();
    }

    // Some writers pad what they write and mail programs add line ends. Anything else behind the message is no part of
    // it and nobody signed it: refused.
    bool Trailing() {
        const std::uint64_t left = source_.Size() - cursor_.Position();
        if (left > kMostPadding) return false;
        const auto padding = source_.Copy(cursor_.Position(), static_cast<std::size_t>(left));
        if (!padding) return Fail(ReadOutcome::readFault);
        message_.trailing = left;
        return AsText(*padding).find_first_not_of(std::string_view("\0\t\r\n ", 5)) == std::string_view::npos;
    }

    ByteSource& source_;
    SourceCursor cursor_;
    ContentReceiver& receiver_;
    SignedDataMessage& message_;
    ReadOutcome outcome_ = ReadOutcome::malformed;
};

bool Reading::PlaceOf(std::optional<ContentPlace>& content, const Take* take) {
    ContentPlace place;
    place.offset = cursor_.Position();
    if (!Pieces(take, place)) return false;
    place.end = cursor_.Position();
    content = place;
    return true;
}

bool Reading::Pass(std::uint64_t size, const Take* take, ContentPlace& place) {
    place.octets += size;
    if (take == nullptr) {
        cursor_.Advance(size);
        return true;
    }
    while (size > 0) {
        const auto piece = source_.View(cursor_.Position(), 1, size);
        if (!piece || piece->empty()) return Fail(ReadOutcome::readFault);
        if (!(*take)(*piece)) return Fail(ReadOutcome::stopped);
        cursor_.Advance(piece->size());
        size -= piece->size();
    }
    return true;
}

// One element of content: an octet string, whole or in nested pieces, or for PKCS#7 1.5 the contents octets of another
// element. The latter need a definite length, since nothing tells where their octets end otherwise.
bool Reading::Pieces(const Take* take, ContentPlace& place) {
    const auto first = cursor_.Peek();
    if (!first) return false;
    place.constructed = first->tag == kConstructedOctetString;
    place.octetString = place.constructed || first->tag == tag::kOctetString;
    if (!place.constructed) {
        if (first->indefinite) return false;
        cursor_.Advance(first->size);
        return Pass(first->length, take, place);
    }
    const std::size_t outside = cursor_.Depth();
    cursor_.Enter(*first);
    while (cursor_.Depth() > outside) {
        if (cursor_.AtEnd()) {
            if (!cursor_.Leave()) return false;
            continue;
        }
        const auto piece = cursor_.Peek();
        if (!piece) return false;
        if (piece->tag == kConstructedOctetString && cursor_.Depth() - outside < kDeepestString) {
            cursor_.Enter(*piece);
        } else if (piece->tag == tag::kOctetString) {
            cursor_.Advance(piece->size);
            if (!Pass(piece->length, take, place)) return false;
        } else {
            return false;
        }
    }
    return true;
}

// For readings that are after no content of a SignedData.
class Nobody final : public ContentReceiver {
  public:
    bool Start(const SignedDataMessage&) override { return false; }
    bool Take(ByteView) override { return false; }
};

}  // namespace

ReadOutcome ReadSignedData(ByteSource& source, ContentReceiver& receiver, SignedDataMessage& message) {
    return Reading(source, {0, source.Size()}, receiver, message).Run();
}

ReadOutcome ReadContentInfo(ByteSource& source, ContentInfoHead& head) {
    Nobody nobody;
    SignedDataMessage unused;
    return Reading(source, {0, source.Size()}, nobody, unused).RunAnyType(head);
}

std::optional<Bytes> ReadContents(ByteSource& source, const SourceRange& element) {
    if (element.end - element.offset > kMostMetadata) return std::nullopt;
    const auto bytes = source.Copy(element.offset, static_cast<std::size_t>(element.end - element.offset));
    const auto whole = bytes ? DerReader(*bytes, DerRules::ber).Next() : std::nullopt;
    return whole ? std::optional(CopyOf(whole->contents)) : std::nullopt;
}

ReadOutcome ReadContentAgain(ByteSource& source, const ContentPlace& place, const Take& take) {
    Nobody nobody;
    SignedDataMessage unused;
    return Reading(source, {place.offset, place.end}, nobody, unused).RunContent(take);
}

}  // namespace platform::cms

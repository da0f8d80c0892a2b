#include "platform/formats/Der.h"

#include "platform/formats/DerWriter.h"
#include "platform/formats/Oid.h"

namespace platform {

namespace {

constexpr std::size_t kDeepest = 64;

// Identifier octets: one, or for tag numbers above 30 up to five more. 0 if incomplete or absurd.
std::size_t IdentifierSize(ByteView start) {
    if ((start.front() & 0x1F) != 0x1F) return 1;
    for (std::size_t size = 2; size <= 6 && size <= start.size(); ++size) {
        if ((start[size - 1] & 0x80) == 0) return size;
    }
    return 0;
}

bool ReadLongLength(ByteView octets, DerRules rules, std::uint64_t& length) {
    if (rules == DerRules::der && octets.front() == 0) return false;
    for (const auto octet : octets)
        length = length << 8 | octet;
    return rules == DerRules::ber || length >= 0x80;
}

// Where contents of indefinite length end: the offset behind their end-of-contents octets. Nested indefinite lengths
// are only counted, so that any depth costs the same.
std::optional<std::size_t> EndOfIndefinite(ByteView contents) {
    std::size_t at = 0;
    for (std::size_t open = 1; open > 0;) {
        const auto header = ParseElementHeader(contents.subspan(at), DerRules::ber);
        if (!header) return std::nullopt;
        at += header->size;
        if (header->IsEndOfContents()) {
            --open;
        } else if (header->indefinite) {
            ++open;
        } else {
            if (header->length > contents.size() - at) return std::nullopt;
            at += static_cast<std::size_t>(header->length);
        }
    }
    return at;
}

// Universal types that BER may cut into pieces, apart from BIT STRING, whose pieces do not simply join.
bool IsConstructedString(std::uint8_t tag) {
    if ((tag & 0xE0) != tag::kConstructed) return false;
    const std::uint8_t number = tag & 0x1F;
    return number == 0x04 || number == 0x0C || (number >= 0x12 && number <= 0x1E);
}

// One constructed element on the way to DER: what is still to be read, and what has been written of its contents.
struct Conversion {
    std::uint8_t tag;
    DerReader rest;
    Bytes written;
    bool joinsPieces;
};

}  // namespace

std::optional<ElementHeader> ParseElementHeader(ByteView start, DerRules rules) {
    if (start.size() < 2) return std::nullopt;
    const std::size_t identifier = IdentifierSize(start);
    if (identifier == 0 || identifier >= start.size()) return std::nullopt;
    ElementHeader header{.tag = start.front(), .size = identifier + 1};
    const std::uint8_t first = start[identifier];
    if (first < 0x80) {
        header.length = first;
        return header;
    }
    if (first == 0x80) {
        header.indefinite = true;
        if (rules == DerRules::der || (header.tag & tag::kConstructed) == 0) return std::nullopt;
        return header;
    }
    const std::size_t octets = first & 0x7F;
    if (octets > 8 || octets > start.size() - header.size) return std::nullopt;
    if (!ReadLongLength(start.subspan(header.size, octets), rules, header.length)) return std::nullopt;
    header.size += octets;
    return header;
}

std::optional<DerElement> DerReader::Next() {
    const auto header = ParseElementHeader(rest_, rules_);
    if (!header) return std::nullopt;
    const ByteView behind = rest_.subspan(header->size);
    std::size_t contents = 0, all = 0;
    if (header->indefinite) {
        const auto end = EndOfIndefinite(behind);
        if (!end) return std::nullopt;
        contents = *end - 2;
        all = *end;
    } else {
        if (header->length > behind.size()) return std::nullopt;
        contents = all = static_cast<std::size_t>(header->length);
    }
    const DerElement element{header->tag, rest_.first(header->size + all), behind.first(contents)};
    rest_ = behind.subspan(all);
    return element;
}

std::optional<DerReader> DerReader::Enter(std::uint8_t tag) {
    const auto element = Next(tag);
    if (!element) return std::nullopt;
    return DerReader(element->contents, rules_);
}

std::optional<std::string> DerReader::Oid() {
    const auto element = Next(tag::kOid);
    if (!element) return std::nullopt;
    return OidToText(element->contents);
}

std::optional<DerElement> SoleElement(ByteView bytes, std::uint8_t tag, DerRules rules) {
    DerReader reader(bytes, rules);
    const auto element = reader.Next(tag);
    return reader.AtEnd() ? element : std::nullopt;
}

std::optional<Bytes> OctetStringValue(const DerElement& element) {
    if (element.tag == tag::kOctetString) return CopyOf(element.contents);
    if (element.tag != (tag::kOctetString | tag::kConstructed)) return std::nullopt;
    const auto der = ToDer(element.encoded);
    if (!der) return std::nullopt;
    const auto joined = SoleElement(*der, tag::kOctetString);
    if (!joined) return std::nullopt;
    return CopyOf(joined->contents);
}

std::optional<Bytes> ToDer(ByteView ber) {
    std::vector<Conversion> open;
    open.push_back({0, DerReader(ber, DerRules::ber), {}, false});
    while (true) {
        Conversion& current = open.back();
        if (current.rest.AtEnd()) {
            Conversion done = std::move(current);
            open.pop_back();
            if (open.empty()) return std::move(done.written);
            const bool string = IsConstructedString(done.tag);
            Bytes& out = open.back().written;
            if (!open.back().joinsPieces) {
                const auto tag = static_cast<std::uint8_t>(string ? done.tag & ~tag::kConstructed : done.tag);
                const Bytes header = DerHeader(tag, done.written.size());
                out.insert(out.end(), header.begin(), header.end());
            }
            out.insert(out.end(), done.written.begin(), done.written.end());
            continue;
        }
        const auto element = current.rest.Next();
        if (!element || (element->tag & 0x1F) == 0x1F) return std::nullopt;
        // Pieces of a string are strings of the same type, cut further or not.
        if (current.joinsPieces && (element->tag | tag::kConstructed) != current.tag) return std::nullopt;
        if ((element->tag & tag::kConstructed) != 0) {
            if (open.size() >= kDeepest) return std::nullopt;
            open.push_back(
                {element->tag, DerReader(element->contents, DerRules::ber), {}, IsConstructedString(element->tag)});
            continue;
        }
        if (!current.joinsPieces) {
            const Bytes header = DerHeader(element->tag, element->contents.size());
            current.written.insert(current.written.end(), header.begin(), header.end());
        }
        current.written.insert(current.written.end(), element->contents.begin(), element->contents.end());
    }
}

std::optional<AlgorithmIdentifier> ReadAlgorithm(DerReader contents) {
    AlgorithmIdentifier algorithm;
    const auto oid = contents.Oid();
    if (!oid) return std::nullopt;
    algorithm.oid = *oid;
    if (!contents.AtEnd()) {
        const auto parameters = contents.Next();
        if (!parameters || !contents.AtEnd()) return std::nullopt;
        algorithm.parameters = CopyOf(parameters->encoded);
    }
    return algorithm;
}

ByteView Magnitude(ByteView integerContents) {
    while (integerContents.size() > 1 && integerContents.front() == 0)
        integerContents = integerContents.subspan(1);
    return integerContents;
}

}  // namespace platform

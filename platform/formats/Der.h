#pragma once
// Reading DER and BER (X.690) in memory. Nothing is copied: elements are views into the bytes that were given. Lengths
// are checked against what is there, and no function recurses over the depth of its input.

#include <optional>
#include <string>
#include <vector>

#include "platform/Types.h"
#include "platform/formats/DerTags.h"

namespace platform {

// der: definite lengths in the shortest form. ber: also longer forms and indefinite lengths.
enum class DerRules { der, ber };

// The identifier and length octets of one element.
struct ElementHeader {
    std::uint8_t tag = 0;      // the first identifier octet; the low five bits all ones for tag numbers above 30
    std::size_t size = 0;      // of the header itself
    std::uint64_t length = 0;  // of the contents; 0 when indefinite
    bool indefinite = false;
    // The two zero octets that end contents of indefinite length.
    [[nodiscard]] bool IsEndOfContents() const { return tag == 0 && length == 0 && size == 2; }
};
// No header of ours is longer.
constexpr std::size_t kLongestElementHeader = 16;
// From the bytes that start with the header. Empty if it is not complete, breaks the rules, or says a length of more
// than 8 significant octets. That the contents are there is not checked.
std::optional<ElementHeader> ParseElementHeader(ByteView start, DerRules rules);

struct DerElement {
    std::uint8_t tag = 0;
    ByteView encoded;   // all of it, with the end-of-contents octets of an indefinite length
    ByteView contents;  // without them
};

// Walks the elements that stand in a row.
class DerReader {
  public:
    explicit DerReader(ByteView bytes, DerRules rules = DerRules::der) : rest_(bytes), rules_(rules) {}
    [[nodiscard]] bool AtEnd() const { return rest_.empty(); }
    // Whether the next element has this identifier octet.
    [[nodiscard]] bool NextIs(std::uint8_t tag) const { return !rest_.empty() && rest_.front() == tag; }
    // The next element. Empty at the end and for malformed bytes; the position stays.
    std::optional<DerElement> Next();
    // The next element if it has this identifier octet.
    std::optional<DerElement> Next(std::uint8_t tag) { return NextIs(tag) ? Next() : std::nullopt; }
    // The contents of the next element as a reader of their own.
    std::optional<DerReader> Enter(std::uint8_t tag);
    std::optional<std::string> Oid();  // dotted text of an OBJECT IDENTIFIER

  private:
    ByteView rest_;
    DerRules rules_;
};

// The one element that takes up all the bytes.
std::optional<DerElement> SoleElement(ByteView bytes, std::uint8_t tag, DerRules rules = DerRules::der);

// The octets of an OCTET STRING, also of one that BER cut into pieces. Empty if it is none, or is nested deeper than
// any writer has a reason for.
std::optional<Bytes> OctetStringValue(const DerElement& element);

// The same value in DER: definite shortest lengths, strings in one piece. The order of SET OF is left as it stands.
// Empty for what does not decode, nests deeper than 64, or has tag numbers above 30, which no format here uses.
std::optional<Bytes> ToDer(ByteView ber);

// An AlgorithmIdentifier (RFC 5280 4.1.1.2).
struct AlgorithmIdentifier {
    std::string oid;
    Bytes parameters;  // the whole element, empty if absent
    [[nodiscard]] bool HasNoParameters() const {
        return parameters.empty() || (parameters.size() == 2 && parameters[0] == tag::kNull && parameters[1] == 0);
    }
};
// From the contents of its SEQUENCE; empty if there is anything more in them.
std::optional<AlgorithmIdentifier> ReadAlgorithm(DerReader contents);

// The magnitude of an INTEGER's contents, big-endian without leading zero octets (one zero octet for zero). A negative
// number, which some serial numbers by mistake are, is taken by its octets as they stand.
ByteView Magnitude(ByteView integerContents);

}  // namespace platform

#pragma once
// Reading of BER and DER (X.690) as certificates, stores and PFX files have it: views into the caller's bytes, every
// length checked, indefinite lengths and constructed strings followed to a bounded depth.

#include <optional>
#include <string>

#include "platform/Types.h"

namespace platform::posix {

// Identifier octets that occur in the formats read here.
constexpr std::uint8_t kBerBoolean = 0x01, kBerInteger = 0x02, kBerBitString = 0x03, kBerOctetString = 0x04,
                       kBerOid = 0x06, kBerUtcTime = 0x17, kBerGeneralizedTime = 0x18, kBerBmpString = 0x1E,
                       kBerSequence = 0x30, kBerSet = 0x31;
constexpr std::uint8_t BerContext(unsigned number) {
    return static_cast<std::uint8_t>(0xA0 | number);
}
constexpr std::uint8_t BerContextPrimitive(unsigned number) {
    return static_cast<std::uint8_t>(0x80 | number);
}

struct BerElement {
    std::uint8_t identifier = 0;
    ByteView content;
    ByteView whole;  // with identifier and length (and end-of-contents)
};

// Walks the elements of one level. A call that fails answers nothing and leaves CRYPT_E_ASN1_EOD (bytes run out),
// CRYPT_E_ASN1_BADTAG (another element stands there) or CRYPT_E_BAD_ENCODE as last error.
class BerReader {
  public:
    explicit BerReader(ByteView bytes) : rest_(bytes) {}
    [[nodiscard]] bool AtEnd() const { return rest_.empty(); }
    [[nodiscard]] ByteView Rest() const { return rest_; }
    [[nodiscard]] bool NextIs(std::uint8_t identifier) const { return !rest_.empty() && rest_[0] == identifier; }
    std::optional<BerElement> Next();
    std::optional<BerElement> Next(std::uint8_t identifier);

  private:
    ByteView rest_;
};

// The one element that `bytes` consist of; anything behind it is CRYPT_E_BAD_ENCODE.
std::optional<BerElement> ReadSingleElement(ByteView bytes, std::uint8_t identifier);

// Dotted text of the content of an OBJECT IDENTIFIER.
std::optional<std::string> OidText(ByteView content);
// The next element, which must be an OBJECT IDENTIFIER, as dotted text.
std::optional<std::string> ReadOid(BerReader& reader);
// UTCTime (RFC 5280 window: 1950 to 2049) or GeneralizedTime, also without seconds or with an offset; moments before
// 1601 count as 1601.
std::optional<FILETIME> ReadTime(BerReader& reader);
// A non-negative INTEGER that fits.
std::optional<std::uint64_t> ReadUnsigned(BerReader& reader);
// The octets of an OCTET STRING, primitive or constructed, with the universal or an implicit context tag.
std::optional<Bytes> OctetsOf(const BerElement& element);

}  // namespace platform::posix

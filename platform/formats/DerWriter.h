#pragma once
// Writing DER (X.690). Small structures are written into memory; a structure around content that does not fit there is
// put together from DerHeader and the sizes known beforehand.
//
//   DerWriter out;
//   out.Sequence([&] {
//       out.Oid("2.16.840.1.101.3.4.2.1");
//       out.Null();
//   });
//   Bytes der = out.Take();

#include <string_view>
#include <utility>
#include <vector>

#include "platform/Types.h"
#include "platform/formats/DerTags.h"

namespace platform {

// The identifier octet and the shortest length octets of an element with contents of so many bytes.
Bytes DerHeader(std::uint8_t tag, std::uint64_t contentsSize);
// How many bytes DerHeader answers (2 to 10).
std::size_t DerHeaderSize(std::uint64_t contentsSize);

class DerWriter {
  public:
    DerWriter& Raw(ByteView encoded);  // appended as it stands
    DerWriter& Value(std::uint8_t tag, ByteView contents);
    DerWriter& Text(std::uint8_t tag, std::string_view contents);
    // The identifier must be valid (it is one of our own constants or was decoded): else nothing usable is written and
    // Valid() turns false.
    DerWriter& Oid(std::string_view dotted);
    DerWriter& Null();
    DerWriter& Boolean(bool value);
    DerWriter& Integer(std::uint64_t value);
    // Any size, big-endian magnitude of a number that is not negative; leading zeros do not matter.
    DerWriter& UnsignedInteger(ByteView magnitude);
    DerWriter& OctetString(ByteView contents) { return Value(tag::kOctetString, contents); }
    // SEQUENCE of the identifier and NULL, as most digest and RSA algorithms are written.
    DerWriter& AlgorithmWithNull(std::string_view oid);
    // SET OF with the encoded elements in DER order.
    DerWriter& SetOf(std::vector<Bytes> elements);

    // Everything that `fill` writes into this writer becomes the contents.
    template <typename Fill>
    DerWriter& Nested(std::uint8_t tag, Fill&& fill) {
        const std::size_t start = Open(tag);
        std::forward<Fill>(fill)();
        Close(start);
        return *this;
    }
    template <typename Fill>
    DerWriter& Sequence(Fill&& fill) {
        return Nested(tag::kSequence, std::forward<Fill>(fill));
    }
    template <typename Fill>
    DerWriter& Set(Fill&& fill) {
        return Nested(tag::kSet, std::forward<Fill>(fill));
    }

    [[nodiscard]] bool Valid() const { return valid_; }
    [[nodiscard]] ByteView View() const { return bytes_; }
    [[nodiscard]] Bytes Take() { return std::exchange(bytes_, {}); }

  private:
    std::size_t Open(std::uint8_t tag);
    void Close(std::size_t start);
    Bytes bytes_;
    bool valid_ = true;
};

}  // namespace platform

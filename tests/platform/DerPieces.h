#pragma once
// Encodings that a test writes down octet by octet.

#include <initializer_list>
#include <string>

#include "platform/formats/DerWriter.h"

namespace tests {

inline platform::Bytes Joined(std::initializer_list<platform::Bytes> parts) {
    platform::Bytes all;
    for (const platform::Bytes& part : parts)
        all.insert(all.end(), part.begin(), part.end());
    return all;
}
inline platform::Bytes Tlv(std::uint8_t tag, platform::ByteView contents) {
    return platform::DerWriter().Value(tag, contents).Take();
}
// distributionPoint with one address.
inline platform::Bytes PointAt(std::string_view url) {
    return Tlv(0xA0, Tlv(0xA0, Tlv(0x86, platform::AsBytes(url))));
}
inline platform::Bytes FromHex(std::string_view digits) {
    platform::Bytes bytes;
    for (std::size_t i = 0; i + 1 < digits.size(); i += 2)
        bytes.push_back(static_cast<std::uint8_t>(std::stoul(std::string(digits.substr(i, 2)), nullptr, 16)));
    return bytes;
}

}  // namespace tests

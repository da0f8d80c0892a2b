#pragma once
// Identifier octets that our formats use (X.690 8.1.2); all of them are of the low form.

#include <cstdint>

namespace platform::tag {

constexpr std::uint8_t kBoolean = 0x01;
constexpr std::uint8_t kInteger = 0x02;
constexpr std::uint8_t kBitString = 0x03;
constexpr std::uint8_t kOctetString = 0x04;
constexpr std::uint8_t kNull = 0x05;
constexpr std::uint8_t kOid = 0x06;
constexpr std::uint8_t kEnumerated = 0x0A;
constexpr std::uint8_t kUtf8String = 0x0C;
constexpr std::uint8_t kPrintableString = 0x13;
constexpr std::uint8_t kTeletexString = 0x14;
constexpr std::uint8_t kIa5String = 0x16;
constexpr std::uint8_t kUtcTime = 0x17;
constexpr std::uint8_t kGeneralizedTime = 0x18;
constexpr std::uint8_t kUniversalString = 0x1C;
constexpr std::uint8_t kBmpString = 0x1E;
constexpr std::uint8_t kSequence = 0x30;
constexpr std::uint8_t kSet = 0x31;

constexpr std::uint8_t kConstructed = 0x20;

// [n], primitive and constructed; n is at most 30.
constexpr std::uint8_t Context(unsigned n) {
    return static_cast<std::uint8_t>(0x80 | n);
}
constexpr std::uint8_t ContextConstructed(unsigned n) {
    return static_cast<std::uint8_t>(0xA0 | n);
}

}  // namespace platform::tag

#pragma once
// The words that all services of the host share.

#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace platform {

using Bytes = std::vector<std::uint8_t>;
using ByteView = std::span<const std::uint8_t>;

// A moment: 100 ns units since 1601-01-01 00:00:00 UTC.
using FILETIME = std::uint64_t;

constexpr FILETIME kFileTimeUnitsPerSecond = 10'000'000;
constexpr FILETIME kFileTimeOfUnixEpoch = 116'444'736'000'000'000;

constexpr FILETIME FileTimeFromUnix(std::int64_t seconds) {
    return kFileTimeOfUnixEpoch + static_cast<FILETIME>(seconds) * kFileTimeUnitsPerSecond;
}
constexpr std::int64_t UnixFromFileTime(FILETIME moment) {
    return (static_cast<std::int64_t>(moment) - static_cast<std::int64_t>(kFileTimeOfUnixEpoch)) /
           static_cast<std::int64_t>(kFileTimeUnitsPerSecond);
}

inline ByteView AsBytes(std::string_view text) {
    return {reinterpret_cast<const std::uint8_t*>(text.data()), text.size()};
}
inline std::string_view AsText(ByteView bytes) {
    return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
}
inline Bytes CopyOf(ByteView bytes) {
    return {bytes.begin(), bytes.end()};
}

}  // namespace platform

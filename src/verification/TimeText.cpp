#include "src/verification/TimeText.h"

#include <array>
#include <cstdio>

#include "platform/System.h"
#include "platform/Text.h"

namespace verification {
namespace {

platform::SYSTEMTIME LocalTime(std::int64_t seconds) {
    return platform::FileTimeToSystemTime(platform::FileTimeToLocalFileTime(platform::FileTimeFromUnix(seconds)));
}

template <typename... Numbers>
std::u16string Formatted(const char* format, Numbers... numbers) {
    std::array<char, 96> text{};
    std::snprintf(text.data(), text.size(), format, numbers...);
    return platform::ToWide(text.data());
}

}  // namespace

std::u16string LocalTimeText(std::int64_t seconds) {
    const auto t = LocalTime(seconds);
    return Formatted("%04d-%02d-%02d %02d:%02d:%02d", t.wYear, t.wMonth, t.wDay, t.wHour, t.wMinute, t.wSecond);
}

std::u16string LocalMinuteText(std::int64_t seconds) {
    const auto t = LocalTime(seconds);
    return Formatted("%02d.%02d.%04d %02d:%02d", t.wDay, t.wMonth, t.wYear, t.wHour, t.wMinute);
}

}  // namespace verification

#include <array>
#include <cstdio>
#include <ctime>

#include "platform/Text.h"
#include "platform/posix/Locale.h"

namespace platform {
namespace {

std::u16string Numbers(const char* format, int first, int second, int third) {
    std::array<char, 64> text;
    const int length = std::snprintf(text.data(), text.size(), format, first, second, third);
    return length > 0 ? ToWide(std::string_view(text.data(), static_cast<std::size_t>(length))) : std::u16string();
}

std::u16string ShortDateOf(const std::string& localeName, int year, int month, int day) {
    const posix::Locale locale(LC_TIME_MASK | LC_CTYPE_MASK, localeName);
    if (locale.Get() == nullptr) return {};
    std::tm date{};
    date.tm_year = year - 1900;
    date.tm_mon = month - 1;
    date.tm_mday = day;
    std::array<char, 256> text;
    const std::size_t length = strftime_l(text.data(), text.size(), "%x", &date, locale.Get());
    // strftime answers in the charset of LC_TIME's locale, which need not be the one of LC_CTYPE.
    const std::string_view narrow(text.data(), length);
    return posix::DecodeCharset(posix::CharsetOf(localeName), narrow).value_or(std::u16string());
}

}  // namespace

std::u16string GetDateFormatW(int year, int month, int day) {
    const std::string name = posix::LocaleName("LC_TIME");
    // The host's Bulgarian data differ from release to release and may not be installed at all.
    if (name.starts_with("bg")) return Numbers("%02d.%02d.%04d", day, month, year) + u" г.";
    if (!posix::IsPortableLocale(name)) {
        if (auto text = ShortDateOf(name, year, month, day); !text.empty()) return text;
    }
    return Numbers("%04d-%02d-%02d", year, month, day);
}

}  // namespace platform

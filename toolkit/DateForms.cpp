#include "toolkit/DateForms.h"

#include <array>
#include <cstdio>
#include <optional>

namespace toolkit {
namespace {

using namespace std::chrono;
using std::optional;
using std::string_view;

bool IsDigit(char c) {
    return c >= '0' && c <= '9';
}

// Takes `least` to `most` digits off the front.
optional<int> TakeNumber(string_view& text, std::size_t least, std::size_t most) {
    int number = 0;
    std::size_t count = 0;
    while (count < most && count < text.size() && IsDigit(text[count]))
        number = number * 10 + (text[count++] - '0');
    if (count < least) return std::nullopt;
    text.remove_prefix(count);
    return number;
}

bool Take(string_view& text, char c) {
    if (!text.starts_with(c)) return false;
    text.remove_prefix(1);
    return true;
}

optional<Moment> DateOf(optional<int> y, optional<int> m, optional<int> d) {
    if (!y || !m || !d) return std::nullopt;
    const year_month_day date(year(*y), month(static_cast<unsigned>(*m)), day(static_cast<unsigned>(*d)));
    return date.ok() ? optional<Moment>(sys_days(date)) : std::nullopt;
}

// A leap second counts as the first of the next minute.
optional<milliseconds> TimeOf(optional<int> h, optional<int> m, optional<int> s) {
    if (!h || !m || !s || *h > 23 || *m > 59 || *s > 60) return std::nullopt;
    return hours(*h) + minutes(*m) + seconds(*s);
}

optional<Moment> ReadDigits(string_view text, std::size_t yearDigits) {
    auto y = TakeNumber(text, yearDigits, yearDigits);
    if (y && yearDigits == 2) *y += *y < 70 ? 2000 : 1900;
    const auto m = TakeNumber(text, 2, 2), d = TakeNumber(text, 2, 2);
    const auto date = DateOf(y, m, d);
    const auto h = TakeNumber(text, 2, 2), min = TakeNumber(text, 2, 2), s = TakeNumber(text, 2, 2);
    const auto time = TimeOf(h, min, s);
    return date && time ? optional<Moment>(*date + *time) : std::nullopt;
}

optional<Moment> ReadIsoDate(string_view text) {
    const bool parted = text.find('-') != string_view::npos;
    const auto y = TakeNumber(text, parted ? 1 : 4, 4);
    if (parted && !Take(text, '-')) return std::nullopt;
    const auto m = TakeNumber(text, parted ? 1 : 2, 2);
    if (parted && !Take(text, '-')) return std::nullopt;
    return DateOf(y, m, TakeNumber(text, parted ? 1 : 2, 2));
}

milliseconds TakeFraction(string_view& text) {
    int number = 0, unit = 1000;
    if (!Take(text, '.') && !Take(text, ',')) return milliseconds(0);
    for (; !text.empty() && IsDigit(text[0]); text.remove_prefix(1)) {
        unit /= 10;
        number += (text[0] - '0') * unit;
    }
    return milliseconds(number);
}

optional<milliseconds> TakeTime(string_view& text) {
    const bool parted = text.substr(0, 3).find(':') != string_view::npos;
    const std::size_t least = parted ? 1 : 2;
    const auto h = TakeNumber(text, least, 2);
    if (parted && !Take(text, ':')) return std::nullopt;
    const auto m = TakeNumber(text, least, 2);
    const bool withSeconds = parted ? Take(text, ':') : !text.empty() && IsDigit(text[0]);
    const auto s = withSeconds ? TakeNumber(text, least, 2) : optional<int>(0);
    const auto time = TimeOf(h, m, s);
    return time ? optional<milliseconds>(*time + TakeFraction(text)) : std::nullopt;
}

// What is behind the time: nothing, Z, or how far the zone is ahead of UTC.
optional<seconds> ReadZone(string_view text) {
    Take(text, 'Z');
    if (text.empty()) return seconds(0);
    const int sign = text[0] == '-' ? -1 : 1;
    if (!Take(text, '+') && !Take(text, '-')) return std::nullopt;
    const auto h = TakeNumber(text, 2, 2);
    Take(text, ':');
    const auto m = text.empty() ? optional<int>(0) : TakeNumber(text, 2, 2);
    const auto zone = TimeOf(h, m, 0);
    if (!zone || !text.empty()) return std::nullopt;
    return duration_cast<seconds>(*zone) * sign;
}

ReadMoment ReadIso(string_view text) {
    const auto separator = text.find('T');
    const auto date = ReadIsoDate(text.substr(0, separator));
    if (!date) return {};
    if (separator == string_view::npos) return {*date, false};
    text.remove_prefix(separator + 1);
    const auto time = TakeTime(text);
    const auto zone = ReadZone(text);
    if (!time || !zone) return {*date, false};
    return {*date + *time - *zone, true};
}

}  // namespace

ReadMoment ReadDateForm(string_view text) {
    constexpr string_view kBlanks = " \t\r\n\v\f";
    text.remove_prefix(std::min(text.find_first_not_of(kBlanks), text.size()));
    text = text.substr(0, text.find_last_not_of(kBlanks) + 1);
    if (text.find_first_of("-:") == string_view::npos && (text.size() == 13 || text.size() == 19)) {
        if (const auto moment = ReadDigits(text, text.size() == 13 ? 2 : 4)) return {*moment, true};
        if (text.find('T') == string_view::npos) return {};
    }
    return ReadIso(text);
}

std::string WriteIsoSeconds(Moment moment) {
    const auto midnight = floor<days>(moment);
    const year_month_day date(midnight);
    const hh_mm_ss time(floor<seconds>(moment - midnight));
    std::array<char, 64> text{};
    const int length = std::snprintf(
        text.data(), text.size(), "%04d-%02u-%02uT%02d:%02d:%02d", static_cast<int>(date.year()),
        static_cast<unsigned>(date.month()), static_cast<unsigned>(date.day()), static_cast<int>(time.hours().count()),
        static_cast<int>(time.minutes().count()), static_cast<int>(time.seconds().count()));
    return {text.data(), static_cast<std::size_t>(length)};
}

std::string WriteZone(seconds fromUtc) {
    const auto distance = duration_cast<minutes>(abs(fromUtc)).count();
    std::array<char, 32> text{};
    const int length = std::snprintf(text.data(), text.size(), "%c%02d:%02d", fromUtc < seconds(0) ? '-' : '+',
                                     static_cast<int>(distance / 60), static_cast<int>(distance % 60));
    return {text.data(), static_cast<std::size_t>(length)};
}

}  // namespace toolkit

#include "platform/formats/Oid.h"

#include <algorithm>
#include <charconv>
#include <limits>

namespace platform {

namespace {

// Adds to a decimal number held as digits, most significant first: number = number * 128 + low.
void ShiftInSeptet(std::string& decimal, unsigned low) {
    unsigned carry = low;
    for (auto digit = decimal.rbegin(); digit != decimal.rend(); ++digit) {
        const unsigned value = static_cast<unsigned>(*digit - '0') * 128 + carry;
        *digit = static_cast<char>('0' + value % 10);
        carry = value / 10;
    }
    for (; carry != 0; carry /= 10)
        decimal.insert(decimal.begin(), static_cast<char>('0' + carry % 10));
}

// Arcs beyond 64 bits do occur (UUIDs under 2.25); they are kept short so that the quadratic work stays small.
constexpr std::size_t kLongestArc = 64;

std::optional<std::string> ArcText(ByteView septets) {
    if (septets.size() > kLongestArc) return std::nullopt;
    if (septets.size() <= 9) {
        std::uint64_t value = 0;
        for (const auto octet : septets)
            value = value << 7 | (octet & 0x7F);
        return std::to_string(value);
    }
    std::string decimal;
    for (const auto octet : septets)
        ShiftInSeptet(decimal, octet & 0x7F);
    return decimal;
}

// The first subidentifier holds two arcs: 40 * first + second, with no bound on the second only under 2.
std::optional<std::string> FirstArcs(ByteView septets) {
    if (septets.size() > 9) return std::nullopt;
    std::uint64_t value = 0;
    for (const auto octet : septets)
        value = value << 7 | (octet & 0x7F);
    const std::uint64_t first = std::min<std::uint64_t>(value / 40, 2);
    return std::to_string(first) + '.' + std::to_string(value - first * 40);
}

void AppendSeptets(Bytes& out, std::uint64_t value) {
    int shift = 63;
    while (shift > 0 && value >> shift == 0)
        shift -= 7;
    for (; shift > 0; shift -= 7)
        out.push_back(static_cast<std::uint8_t>(0x80 | (value >> shift & 0x7F)));
    out.push_back(static_cast<std::uint8_t>(value & 0x7F));
}

std::optional<std::uint64_t> ReadArc(std::string_view& text) {
    const std::string_view arc = text.substr(0, text.find('.'));
    std::uint64_t value = 0;
    const auto [end, error] = std::from_chars(arc.data(), arc.data() + arc.size(), value);
    if (error != std::errc{} || end != arc.data() + arc.size()) return std::nullopt;
    if (arc.size() > 1 && arc.front() == '0') return std::nullopt;
    text.remove_prefix(arc.size());
    return value;
}

}  // namespace

std::optional<std::string> OidToText(ByteView contents) {
    if (contents.empty() || (contents.back() & 0x80) != 0) return std::nullopt;
    std::string text;
    while (!contents.empty()) {
        if (contents.front() == 0x80) return std::nullopt;
        std::size_t length = 1;
        while ((contents[length - 1] & 0x80) != 0)
            ++length;
        const auto arc = text.empty() ? FirstArcs(contents.first(length)) : ArcText(contents.first(length));
        if (!arc) return std::nullopt;
        if (!text.empty()) text += '.';
        text += *arc;
        contents = contents.subspan(length);
    }
    return text;
}

std::optional<Bytes> OidFromText(std::string_view dotted) {
    const auto first = ReadArc(dotted);
    if (!first || *first > 2 || dotted.empty()) return std::nullopt;
    dotted.remove_prefix(1);
    const auto second = ReadArc(dotted);
    if (!second || (*first < 2 && *second > 39)) return std::nullopt;
    if (*second > std::numeric_limits<std::uint64_t>::max() - 80) return std::nullopt;
    Bytes out;
    AppendSeptets(out, *first * 40 + *second);
    while (!dotted.empty()) {
        dotted.remove_prefix(1);
        const auto arc = ReadArc(dotted);
        if (!arc) return std::nullopt;
        AppendSeptets(out, *arc);
    }
    return out;
}

}  // namespace platform

#include "platform/formats/Oid.h"

#include <algorithm>
#include <array>
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

// At most nine of them, which 64 bits hold.
std::uint64_t ValueOf(ByteView septets) {
    std::uint64_t value = 0;
    for (const auto octet : septets)
        value = value << 7 | (octet & 0x7F);
    return value;
}

void Append(std::string& text, std::uint64_t value) {
    std::array<char, 20> digits;
    text.append(digits.data(), std::to_chars(digits.begin(), digits.end(), value).ptr);
}

bool AppendArc(std::string& text, ByteView septets) {
    if (septets.size() > kLongestArc) return false;
    text += '.';
    if (septets.size() <= 9) {
        Append(text, ValueOf(septets));
        return true;
    }
    std::string decimal;
    for (const auto octet : septets)
        ShiftInSeptet(decimal, octet & 0x7F);
    text += decimal;
    return true;
}

// The first subidentifier holds two arcs: 40 * first + second, with no bound on the second only under 2.
bool AppendFirstArcs(std::string& text, ByteView septets) {
    if (septets.size() > 9) return false;
    const std::uint64_t value = ValueOf(septets);
    const std::uint64_t first = std::min<std::uint64_t>(value / 40, 2);
    Append(text, first);
    text += '.';
    Append(text, value - first * 40);
    return true;
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
    text.reserve(32);
    while (!contents.empty()) {
        if (contents.front() == 0x80) return std::nullopt;
        std::size_t length = 1;
        while ((contents[length - 1] & 0x80) != 0)
            ++length;
        const ByteView arc = contents.first(length);
        if (!(text.empty() ? AppendFirstArcs(text, arc) : AppendArc(text, arc))) return std::nullopt;
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

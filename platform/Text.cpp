#include "platform/Text.h"

#include <algorithm>

namespace platform {
namespace {

constexpr char16_t kReplacement = 0xFFFD;

constexpr bool IsHighSurrogate(char16_t unit) {
    return unit >= 0xD800 && unit < 0xDC00;
}
constexpr bool IsLowSurrogate(char16_t unit) {
    return unit >= 0xDC00 && unit < 0xE000;
}

// Also those of the second half of Latin-1, and the marks that order text of two directions.
constexpr bool IsControl(char16_t unit) {
    return unit < 0x20 || (unit >= 0x7F && unit < 0xA0) || unit == 0x061C || unit == 0x200E || unit == 0x200F ||
           (unit >= 0x2028 && unit <= 0x202E) || (unit >= 0x2066 && unit <= 0x2069);
}

// A lead byte's sequence: how long it is and the range of its second byte, which shuts out overlong forms, surrogates
// and values above U+10FFFF (RFC 3629, 4). Length 0 for what cannot lead.
struct Sequence {
    unsigned length;
    unsigned char low, high;
};
constexpr Sequence SequenceOf(unsigned char lead) {
    if (lead >= 0xC2 && lead <= 0xDF) return {2, 0x80, 0xBF};
    if (lead == 0xE0) return {3, 0xA0, 0xBF};
    if (lead == 0xED) return {3, 0x80, 0x9F};
    if (lead >= 0xE1 && lead <= 0xEF) return {3, 0x80, 0xBF};
    if (lead == 0xF0) return {4, 0x90, 0xBF};
    if (lead >= 0xF1 && lead <= 0xF3) return {4, 0x80, 0xBF};
    if (lead == 0xF4) return {4, 0x80, 0x8F};
    return {0, 0, 0};
}

// Of the start that is plain ASCII: nearly every text is that from end to end.
template <typename Text>
std::size_t AsciiLength(Text text) {
    const auto isOther = [](auto unit) { return static_cast<std::make_unsigned_t<decltype(unit)>>(unit) >= 0x80; };
    return static_cast<std::size_t>(std::ranges::find_if(text, isOther) - text.begin());
}

void AppendUtf16(char32_t character, std::u16string& out) {
    if (character < 0x10000) {
        out.push_back(static_cast<char16_t>(character));
        return;
    }
    character -= 0x10000;
    out.push_back(static_cast<char16_t>(0xD800 + (character >> 10)));
    out.push_back(static_cast<char16_t>(0xDC00 + (character & 0x3FF)));
}

// Decodes the sequence at `at` and moves behind it. False for a malformed one, of which the longest well-formed start
// (at least one byte) is consumed.
bool DecodeOne(std::string_view text, std::size_t& at, char32_t& character) {
    const auto lead = static_cast<unsigned char>(text[at++]);
    const Sequence sequence = SequenceOf(lead);
    if (sequence.length == 0) return false;
    character = lead & (0xFFu >> (sequence.length + 1));
    for (unsigned i = 1; i < sequence.length; ++i) {
        if (at == text.size()) return false;
        const auto byte = static_cast<unsigned char>(text[at]);
        const unsigned char low = i == 1 ? sequence.low : 0x80;
        const unsigned char high = i == 1 ? sequence.high : 0xBF;
        if (byte < low || byte > high) return false;
        character = character << 6 | (byte & 0x3Fu);
        ++at;
    }
    return true;
}

}  // namespace

std::u16string ToWide(std::string_view utf8) {
    std::size_t at = AsciiLength(utf8);
    std::u16string out(utf8.begin(), utf8.begin() + static_cast<std::ptrdiff_t>(at));
    if (at == utf8.size()) return out;
    out.reserve(utf8.size());
    while (at < utf8.size()) {
        if (static_cast<unsigned char>(utf8[at]) < 0x80) {
            out.push_back(static_cast<char16_t>(utf8[at++]));
            continue;
        }
        char32_t character = 0;
        AppendUtf16(DecodeOne(utf8, at, character) ? character : kReplacement, out);
    }
    return out;
}

std::string ToUtf8(std::u16string_view text) {
    std::size_t at = AsciiLength(text);
    std::string out(text.begin(), text.begin() + static_cast<std::ptrdiff_t>(at));
    if (at == text.size()) return out;
    out.reserve(text.size() + text.size() / 2);
    for (; at < text.size(); ++at) {
        char32_t character = text[at];
        if (character < 0x80) {
            out.push_back(static_cast<char>(character));
            continue;
        }
        if (character < 0x800) {
            out.push_back(static_cast<char>(0xC0 | character >> 6));
            out.push_back(static_cast<char>(0x80 | (character & 0x3F)));
            continue;
        }
        const char16_t unit = text[at];
        if (IsHighSurrogate(unit) && at + 1 < text.size() && IsLowSurrogate(text[at + 1])) {
            character = 0x10000 + ((character - 0xD800) << 10) + (char32_t{text[++at]} - 0xDC00);
            out.push_back(static_cast<char>(0xF0 | character >> 18));
            out.push_back(static_cast<char>(0x80 | (character >> 12 & 0x3F)));
        } else {
            if (IsHighSurrogate(unit) || IsLowSurrogate(unit)) character = kReplacement;
            out.push_back(static_cast<char>(0xE0 | character >> 12));
        }
        out.push_back(static_cast<char>(0x80 | (character >> 6 & 0x3F)));
        out.push_back(static_cast<char>(0x80 | (character & 0x3F)));
    }
    return out;
}

std::string OneLineUtf8(std::u16string_view text) {
    std::u16string line(text);
    std::replace_if(line.begin(), line.end(), IsControl, kReplacement);
    return ToUtf8(line);
}

}  // namespace platform

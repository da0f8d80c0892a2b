#include "toolkit/JsonText.h"

#include <cstdint>
#include <optional>

namespace toolkit {
namespace {

constexpr std::string_view kLetters = "bfnrt\"\\/";
constexpr std::string_view kMeanings = "\b\f\n\r\t\"\\/";
constexpr std::string_view kHexadecimal = "0123456789abcdef";

void AppendUtf8(std::string& out, std::uint32_t code) {
    const auto tail = [&](int shift) { out.push_back(static_cast<char>(0x80 | ((code >> shift) & 0x3F))); };
    if (code < 0x80) {
        out.push_back(static_cast<char>(code));
    } else if (code < 0x800) {
        out.push_back(static_cast<char>(0xC0 | (code >> 6)));
        tail(0);
    } else if (code < 0x10000) {
        out.push_back(static_cast<char>(0xE0 | (code >> 12)));
        tail(6);
        tail(0);
    } else {
        out.push_back(static_cast<char>(0xF0 | (code >> 18)));
        tail(12);
        tail(6);
        tail(0);
    }
}

// The code unit of "\uXXXX" at the front.
std::optional<std::uint32_t> UnitAt(std::string_view text) {
    if (text.size() < 6 || text[0] != '\\' || text[1] != 'u') return std::nullopt;
    std::uint32_t unit = 0;
    for (const char c : text.substr(2, 4)) {
        const auto digit = kHexadecimal.find(c >= 'A' && c <= 'F' ? static_cast<char>(c + 32) : c);
        if (digit == std::string_view::npos) return std::nullopt;
        unit = unit * 16 + static_cast<std::uint32_t>(digit);
    }
    return unit;
}

// Decodes the "\uXXXX" at the front, with its partner if it is half a pair; answers the bytes taken, 0 if it is broken.
std::size_t DecodeUnit(std::string_view text, std::string& out) {
    const auto unit = UnitAt(text);
    if (!unit) return 0;
    if (*unit < 0xD800 || *unit > 0xDFFF) {
        AppendUtf8(out, *unit);
        return 6;
    }
    const auto low = *unit < 0xDC00 ? UnitAt(text.substr(6)) : std::nullopt;
    if (!low || *low < 0xDC00 || *low > 0xDFFF) {
        AppendUtf8(out, 0xFFFD);
        return 6;
    }
    AppendUtf8(out, 0x10000 + ((*unit - 0xD800) << 10) + (*low - 0xDC00));
    return 12;
}

}  // namespace

std::string EscapeJson(std::string_view text) {
    std::string out;
    out.reserve(text.size());
    for (const char c : text) {
        const auto letter = c == '/' ? std::string_view::npos : kMeanings.find(c);
        if (letter != std::string_view::npos) {
            out.append({'\\', kLetters[letter]});
        } else if (static_cast<unsigned char>(c) < 0x20) {
            out.append({'\\', 'u', '0', '0', c < 0x10 ? '0' : '1', kHexadecimal[static_cast<std::size_t>(c) & 15]});
        } else {
            out.push_back(c);
        }
    }
    return out;
}

std::string UnescapeJson(std::string_view written) {
    std::string out;
    out.reserve(written.size());
    while (!written.empty()) {
        const auto plain = std::min(written.find('\\'), written.size());
        out.append(written.substr(0, plain));
        written.remove_prefix(plain);
        if (written.empty()) break;
        std::size_t taken = 0;
        if (written.size() > 1) {
            const auto letter = kLetters.find(written[1]);
            if (letter != std::string_view::npos) {
                out.push_back(kMeanings[letter]);
                taken = 2;
            } else {
                taken = DecodeUnit(written, out);
            }
        }
        if (taken == 0) {
            out.push_back('\\');
            taken = 1;
        }
        written.remove_prefix(taken);
    }
    return out;
}

std::string AsWrittenName(std::string_view name) {
    for (std::size_t i = 0; i < name.size(); ++i) {
        if (name[i] == '"') return EscapeJson(name);
        if (name[i] == '\\' && ++i == name.size()) return EscapeJson(name);
    }
    return std::string(name);
}

}  // namespace toolkit

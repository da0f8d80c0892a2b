#include <iconv.h>
#include <strings.h>

#include <array>
#include <bit>
#include <cerrno>
#include <cstring>

#include "platform/Text.h"
#include "platform/posix/Locale.h"

namespace platform {
namespace {

// Windows-1251 from 0x80 to 0xBF; 0xC0 to 0xFF are the 64 letters from U+0410. 0x98 is not assigned.
constexpr std::array<char16_t, 64> kCyrillicUpperHalf = {
    0x0402, 0x0403, 0x201A, 0x0453, 0x201E, 0x2026, 0x2020, 0x2021, 0x20AC, 0x2030, 0x0409, 0x2039, 0x040A,
    0x040C, 0x040B, 0x040F, 0x0452, 0x2018, 0x2019, 0x201C, 0x201D, 0x2022, 0x2013, 0x2014, 0x0000, 0x2122,
    0x0459, 0x203A, 0x045A, 0x045C, 0x045B, 0x045F, 0x00A0, 0x040E, 0x045E, 0x0408, 0x00A4, 0x0490, 0x00A6,
    0x00A7, 0x0401, 0x00A9, 0x0404, 0x00AB, 0x00AC, 0x00AD, 0x00AE, 0x0407, 0x00B0, 0x00B1, 0x0406, 0x0456,
    0x0491, 0x00B5, 0x00B6, 0x00B7, 0x0451, 0x2116, 0x0454, 0x00BB, 0x0458, 0x0405, 0x0455, 0x0457};

constexpr char16_t FromWindows1251(unsigned char byte) {
    if (byte < 0x80) return byte;
    if (byte >= 0xC0) return static_cast<char16_t>(0x0410 + (byte - 0xC0));
    return kCyrillicUpperHalf[byte - 0x80];
}

char ToWindows1251(char16_t unit) {
    if (unit < 0x80) return static_cast<char>(unit);
    if (unit >= 0x0410 && unit <= 0x044F) return static_cast<char>(unit - 0x0410 + 0xC0);
    for (std::size_t i = 0; i < kCyrillicUpperHalf.size(); ++i) {
        if (kCyrillicUpperHalf[i] == unit) return static_cast<char>(0x80 + i);
    }
    return '?';
}

constexpr bool IsHighSurrogate(char16_t unit) {
    return unit >= 0xD800 && unit < 0xDC00;
}
constexpr bool IsLowSurrogate(char16_t unit) {
    return unit >= 0xDC00 && unit < 0xE000;
}

std::optional<std::u16string> DecodeWindows1251(std::string_view text) {
    std::u16string out;
    out.reserve(text.size());
    for (const char byte : text) {
        const char16_t unit = FromWindows1251(static_cast<unsigned char>(byte));
        if (unit == 0 && byte != 0) return std::nullopt;
        out.push_back(unit);
    }
    return out;
}

std::string EncodeWindows1251(std::u16string_view text) {
    std::string out;
    out.reserve(text.size());
    for (std::size_t at = 0; at < text.size(); ++at) {
        out.push_back(ToWindows1251(text[at]));
        if (IsHighSurrogate(text[at]) && at + 1 < text.size() && IsLowSurrogate(text[at + 1])) ++at;
    }
    return out;
}

// U+FFFD may stand in the text itself; only where it replaced something does the way back lead elsewhere.
std::optional<std::u16string> DecodeUtf8(std::string_view text) {
    std::u16string wide = ToWide(text);
    if (wide.find(u'\uFFFD') != std::u16string::npos && ToUtf8(wide) != text) return std::nullopt;
    return wide;
}

constexpr const char* kUtf16 = std::endian::native == std::endian::little ? "UTF-16LE" : "UTF-16BE";

// A converter between the host's charsets.
class Converter {
  public:
    Converter(const char* to, const char* from) : handle_(iconv_open(to, from)) {}
    ~Converter() {
        if (*this) iconv_close(handle_);
    }
    Converter(const Converter&) = delete;
    Converter& operator=(const Converter&) = delete;
    explicit operator bool() const { return handle_ != Invalid(); }

    // Converts on to the end or to the first character that has no counterpart, and moves `in` there. True at the end.
    bool Run(std::string_view& in, std::string& out) {
        std::array<char, 1024> piece;
        for (;;) {
            char* from = const_cast<char*>(in.data());  // iconv's signature; it does not write there
            std::size_t left = in.size();
            char* to = piece.data();
            std::size_t room = piece.size();
            const std::size_t result = iconv(handle_, left == 0 ? nullptr : &from, &left, &to, &room);
            const int error = result == static_cast<std::size_t>(-1) ? errno : 0;
            out.append(piece.data(), piece.size() - room);
            const bool flushed = in.empty();
            in.remove_prefix(in.size() - left);
            if (error == E2BIG) continue;
            if (error != 0) return false;
            if (flushed) return true;  // also what returns a stateful charset to its initial state is out
        }
    }

  private:
    static iconv_t Invalid() { return reinterpret_cast<iconv_t>(-1); }  // NOLINT: POSIX tells failure so
    iconv_t handle_;
};

std::optional<std::u16string> DecodeByHost(const std::string& charset, std::string_view text) {
    Converter converter(kUtf16, charset.c_str());
    std::string bytes;
    if (!converter || !converter.Run(text, bytes)) return std::nullopt;
    std::u16string wide(bytes.size() / sizeof(char16_t), u'\0');
    std::memcpy(wide.data(), bytes.data(), wide.size() * sizeof(char16_t));
    return wide;
}

std::string EncodeByHost(const std::string& charset, std::u16string_view text) {
    Converter converter(charset.c_str(), "UTF-8");
    std::string utf8 = ToUtf8(text);
    if (!converter) return utf8;
    std::string out;
    std::string_view rest = utf8;
    while (!converter.Run(rest, out) && !rest.empty()) {
        do {
            rest.remove_prefix(1);
        } while (!rest.empty() && (static_cast<unsigned char>(rest.front()) & 0xC0) == 0x80);
        std::string_view questionMark = "?";
        converter.Run(questionMark, out);
    }
    return out;
}

// Known charsets get their own codec; everything else is the host's affair.
std::string CharsetOfCodePage(std::uint32_t codePage) {
    switch (codePage) {
        case CP_UTF8:
            return "UTF-8";
        case CP_1251:
            return "CP1251";
        case CP_ACP:
        case CP_THREAD_ACP:
            return posix::CharsetOf(posix::LocaleName("LC_CTYPE"));
        default:
            return "CP" + std::to_string(codePage);
    }
}

bool IsOneOf(const std::string& charset, std::initializer_list<const char*> names) {
    for (const char* name : names) {
        if (strcasecmp(charset.c_str(), name) == 0) return true;
    }
    return false;
}
bool IsUtf8(const std::string& charset) {
    return IsOneOf(charset, {"UTF-8", "UTF8"});
}
bool IsWindows1251(const std::string& charset) {
    return IsOneOf(charset, {"CP1251", "WINDOWS-1251"});
}

}  // namespace

std::optional<std::u16string> posix::DecodeCharset(const std::string& charset, std::string_view text) {
    if (IsUtf8(charset)) return DecodeUtf8(text);
    if (IsWindows1251(charset)) return DecodeWindows1251(text);
    return DecodeByHost(charset, text);
}

std::optional<std::u16string> MultiByteToWideChar(std::uint32_t codePage, std::string_view text) {
    if (text.empty()) return std::u16string();
    auto wide = posix::DecodeCharset(CharsetOfCodePage(codePage), text);
    if (!wide) SetLastError(ERROR_NO_UNICODE_TRANSLATION);
    return wide;
}

std::string WideCharToMultiByte(std::uint32_t codePage, std::u16string_view text) {
    const std::string charset = CharsetOfCodePage(codePage);
    if (IsUtf8(charset)) return ToUtf8(text);
    if (IsWindows1251(charset)) return EncodeWindows1251(text);
    return EncodeByHost(charset, text);
}

}  // namespace platform

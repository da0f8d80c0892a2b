#include "src/certificates/DerText.h"

#include "platform/Text.h"

namespace certificates {
namespace {

using platform::ByteView;
namespace tag = platform::tag;

constexpr std::uint8_t kVisibleString = 0x1A;

std::u16string OneLine(std::u16string_view text) {
    return platform::ToWide(platform::OneLineUtf8(text));
}

}  // namespace

std::u16string NumberText(ByteView contents) {
    const auto magnitude = platform::Magnitude(contents);
    if (contents.empty() || magnitude.size() > 4 || (contents[0] & 0x80) != 0) return u"?";
    std::uint32_t value = 0;
    for (const auto octet : magnitude)
        value = value << 8 | octet;
    return platform::ToWide(std::to_string(value));
}

std::u16string Utf8Text(ByteView bytes) {
    return OneLine(platform::ToWide(platform::AsText(bytes)));
}

std::optional<std::u16string> StringText(const platform::DerElement& element) {
    std::u16string text;
    switch (element.tag) {
        case tag::kUtf8String:
        case tag::kPrintableString:
        case tag::kIa5String:
        case kVisibleString:
            return Utf8Text(element.contents);
        case tag::kTeletexString:
            text.assign(element.contents.begin(), element.contents.end());
            return OneLine(text);
        case tag::kBmpString:
            for (std::size_t i = 0; i + 1 < element.contents.size(); i += 2)
                text += static_cast<char16_t>(element.contents[i] << 8 | element.contents[i + 1]);
            return OneLine(text);
        default:
            return std::nullopt;
    }
}

std::u16string HexLines(ByteView bytes) {
    constexpr std::size_t row = 16;
    constexpr std::u16string_view digits = u"0123456789abcdef";
    std::u16string text;
    for (std::size_t i = 0; i < bytes.size(); ++i) {
        if (i > 0) text += i % row == 0 ? u'\n' : u' ';
        text += digits[bytes[i] >> 4];
        text += digits[bytes[i] & 0x0F];
    }
    return text;
}

void AddLine(std::u16string& text, std::u16string_view line) {
    if (!text.empty()) text += u'\n';
    text += line;
}

}  // namespace certificates

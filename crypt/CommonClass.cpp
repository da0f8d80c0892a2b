#include "crypt/CommonClass.h"

#include <array>
#include <charconv>

#include "platform/Text.h"

namespace tessaly {
namespace {

std::u16string Digits(std::uint32_t number, int base) {
    std::array<char, 16> digits{};
    const auto end = std::to_chars(digits.data(), digits.data() + digits.size(), number, base).ptr;
    return {digits.data(), end};
}

}  // namespace

std::u16string FormatErrorText(std::uint32_t code) {
    if (code == 0) return {};
    const std::u16string number = u"Error 0x" + Digits(code, 16);
    const std::u16string message = platform::FormatMessageW(code);
    return message.empty() ? number : u"Msg: " + message + u"\n" + number;
}

std::u16string CommonClass::FormatErrorAt(const std::u16string& file, int line) const {
    return u"File - " + file + u"\nLine - " + Digits(static_cast<std::uint32_t>(line), 10) + u"\n" + GetErrorText();
}

std::u16string CommonClass::GetErrorText() const {
    return FormatErrorText(lastError);
}

}  // namespace tessaly

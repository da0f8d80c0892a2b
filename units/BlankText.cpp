#include "units/BlankText.h"

namespace units {

std::u16string_view Trim(std::u16string_view text) {
    constexpr std::u16string_view blanks = u"\n\t\v\f\r ";
    const auto first = text.find_first_not_of(blanks);
    if (first == std::u16string_view::npos) return {};
    return text.substr(first, text.find_last_not_of(blanks) - first + 1);
}

bool IsBlank(const char16_t* text) {
    return text == nullptr || Trim(text).empty();
}

}  // namespace units

#pragma once

#include <string_view>

namespace units {

// The text without line feed, tab, vertical tab, form feed, carriage return and space at both ends.
std::u16string_view Trim(std::u16string_view text);

// Null, or nothing left after trimming.
bool IsBlank(const char16_t* text);

}  // namespace units

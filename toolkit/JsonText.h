#pragma once
// Text as it stands between the quotes of a JSON string.

#include <string>
#include <string_view>

namespace toolkit {

// Escapes control characters, the double quote and the backslash; all else, also every multi-byte sequence, stays.
std::string EscapeJson(std::string_view text);
// Undoes the escapes. A surrogate without its partner becomes U+FFFD; an unknown or broken escape stays as written.
std::string UnescapeJson(std::string_view written);
// The text as it stands if it can stand between quotes (every quote and backslash part of an escape), else escaped.
std::string AsWrittenName(std::string_view name);

}  // namespace toolkit

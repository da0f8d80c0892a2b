#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace toolkit {

// The content of the file that a short text names in place of JSON; empty if the text is not short (`limit` bytes or
// more), holds the opening bracket, or names no readable file.
std::optional<std::string> JsonFileNamed(std::string_view text, char bracket, std::size_t limit);

}  // namespace toolkit

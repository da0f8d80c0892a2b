#pragma once
// JSON text of a value, as it stands in the tree.

#include <optional>
#include <string>

#include "toolkit/JsonDocument.h"

namespace toolkit {

// Without compact each member and element has a line of its own, indented by two blanks a depth, and the text ends with
// a line end; an empty object is always "{}".
struct JsonLayout {
    bool compact = true;
    bool crLf = true;
};

// Indentation grows with the square of the nesting, so a hostile text of a megabyte could ask for terabytes.
constexpr std::size_t kMaxJsonText = std::size_t{1} << 30;

// Empty if the text would be longer than the limit, in bytes. A container as the value: its depth counts as 0.
std::optional<std::string> WriteJson(const JsonValue& value, JsonLayout layout, std::size_t limit = kMaxJsonText);

}  // namespace toolkit

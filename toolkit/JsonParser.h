#pragma once
// Tolerant reading of JSON text: linear in the text, without recursion, so that no nesting is too deep.

#include <optional>
#include <string>

#include "toolkit/JsonDocument.h"

namespace toolkit {

// Where and why reading stopped.
struct JsonFault {
    std::size_t offset = 0;  // in bytes
    std::string reason;
};

// Reads the document's source text into a new root object. What stands ahead of the first `{` is skipped; a text
// without one, or one that ends early, is no fault and leaves what was read so far. What follows the root is ignored.
// A closing bracket of the wrong kind closes what is open up to the nearest container of its kind. A fault is a member
// without a quoted name or without a colon.
struct JsonRoot {
    JsonObject* root = nullptr;  // never null
    std::optional<JsonFault> fault;
};
JsonRoot ParseJsonObject(JsonDocument& document);

// Reads the one value that the source text starts with.
struct JsonFirst {
    JsonValue value;
    std::optional<JsonFault> fault;
};
JsonFirst ParseJsonValue(JsonDocument& document);

}  // namespace toolkit

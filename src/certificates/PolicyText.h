#pragma once
// The extensions about policies (RFC 5280, 4.2.1.4, 4.2.1.5, 4.2.1.11 and 4.2.1.14) in words; empty for what does not
// decode.

#include <optional>
#include <string>

#include "platform/Types.h"

namespace certificates {

// A line for each policy, and indented below it where its practice statement lies and what it wants the reader to know.
std::optional<std::u16string> PoliciesText(platform::ByteView value);
std::optional<std::u16string> PolicyMappingsText(platform::ByteView value);
std::optional<std::u16string> PolicyConstraintsText(platform::ByteView value);
std::optional<std::u16string> InhibitAnyPolicyText(platform::ByteView value);

}  // namespace certificates

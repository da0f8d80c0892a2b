#pragma once
// Object identifiers (X.690 8.19) between their contents octets and dotted text.

#include <optional>
#include <string>
#include <string_view>

#include "platform/Types.h"

namespace platform {

// "1.2.840.113549" for the contents octets (without tag and length). Arcs of any size are shown exactly. Empty for
// octets that are no identifier: none at all, a last octet that says more follows, an arc with leading zeros.
std::optional<std::string> OidToText(ByteView contents);

// The contents octets. Empty for text that is no identifier: fewer than two arcs, a first arc over 2, a second over 39
// under 0 and 1, signs, blanks, leading zeros, or an arc over 64 bits.
std::optional<Bytes> OidFromText(std::string_view dotted);

}  // namespace platform

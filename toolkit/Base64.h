#pragma once
// Base64 (RFC 4648, 4) as it is met in files.

#include <optional>
#include <string>
#include <string_view>

#include "platform/Types.h"

namespace toolkit {

std::string EncodeBase64(platform::ByteView bytes);  // with padding, without line ends
// Blanks, tabs and line ends may stand anywhere, the padding may be missing. Empty for any other character, for
// anything behind the padding and for a lone last character, which holds no whole byte.
std::optional<platform::Bytes> DecodeBase64(std::string_view text);

}  // namespace toolkit

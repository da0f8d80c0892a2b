#pragma once
// The names of many kinds that extensions of certificates carry (RFC 5280, 4.2.1.6).

#include <optional>
#include <string>

#include "platform/formats/Der.h"

namespace certificates {

// One GeneralName with its kind: "Имейл: a@b.bg". A kind that people do not read is told as bytes. Empty if it does not
// decode.
std::optional<std::u16string> GeneralNameText(const platform::DerElement& name);

// GeneralNames from their contents, a line for each. Empty if one does not decode.
std::optional<std::u16string> GeneralNamesText(platform::ByteView contents);

}  // namespace certificates

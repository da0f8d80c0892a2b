#pragma once
// Parts of a certificate in words for a person.

#include <optional>
#include <string>
#include <string_view>

#include "platform/Types.h"

namespace certificates {

// The Bulgarian name of an extension (RFC 5280, 4.2; RFC 3739); empty for one that has none.
std::u16string ExtensionName(std::string_view oid);

// The statements of a qualified certificate (ETSI EN 319 412-5), a line for each; one that is not known by name stands
// with its number. Empty if the value does not decode.
std::optional<std::u16string> QcStatementsText(platform::ByteView der);
constexpr std::string_view kQcStatementsOid = "1.3.6.1.5.5.7.1.3";

}  // namespace certificates

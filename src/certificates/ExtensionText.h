#pragma once
// Values of certificate extensions as a person reads them.

#include <optional>
#include <string>
#include <string_view>

#include "platform/Types.h"

namespace certificates {

// Labelled lines for the extensions that certificates of European authorities carry (RFC 5280, 4.2; RFC
// 6960, 4.2.2.2.1; ETSI EN 319 412-5). Empty for any other and for a value that does not decode.
std::optional<std::u16string> ReadableExtension(std::string_view oid, platform::ByteView value);

// The same, or the bytes in hexadecimal.
std::u16string ExtensionText(std::string_view oid, platform::ByteView value);

constexpr std::string_view kKeyUsageOid = "2.5.29.15";
constexpr std::string_view kExtendedKeyUsageOid = "2.5.29.37";

}  // namespace certificates

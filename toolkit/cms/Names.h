#pragma once
// Texts for a report: names and numbers of certificates as people read them.

#include <string>

#include "platform/Certificates.h"

namespace toolkit::cms {

std::string UpperHex(platform::ByteView bytes);
std::string SerialHex(platform::ByteView integerContents);  // big-endian, without leading zero octets

// The first commonName of a Name in DER; empty if it has none.
std::string CommonNameOf(platform::ByteView name);
std::string DistinguishedNameOf(platform::ByteView name);

}  // namespace toolkit::cms

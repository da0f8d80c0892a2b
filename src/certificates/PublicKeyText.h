#pragma once

#include <cstdint>
#include <string>

#include "platform/Types.h"

namespace certificates {

// A public key in words, from its SubjectPublicKeyInfo (RFC 5280, 4.1.2.7; RFC 3279, 2.3; RFC 5480): algorithm and
// length in the first line, then what the key consists of. `bits`: its length, 0 if that is not known. What does not
// decode stands in hexadecimal.
std::u16string PublicKeyText(platform::ByteView subjectPublicKeyInfo, std::uint32_t bits);

}  // namespace certificates

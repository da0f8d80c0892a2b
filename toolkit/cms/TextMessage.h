#pragma once
// Messages that came as text: Base64, bare or in PEM (RFC 7468).

#include <memory>

#include "platform/formats/ByteSource.h"

namespace toolkit::cms {

// Whether the first 20000 bytes (or all, if they are fewer) are 7-bit. No message in DER or BER is: the identifier of
// SignedData itself has octets above.
bool LooksLikeText(platform::ByteSource& source);

// The decoded bytes of Base64, PEM, or a mail whose only part is the message (RFC 8551 3.5.2): in memory up to 16 MiB,
// in a nameless temporary file beyond. Lines that begin with "-----" are dropped; what stands before the first
// "-----BEGIN " and after the next "-----END " is no part of the message. Null for characters that are no Base64, and
// when the temporary file cannot be written (last error set).
std::unique_ptr<platform::ByteSource> DecodeText(platform::ByteSource& text);

}  // namespace toolkit::cms

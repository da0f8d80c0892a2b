#pragma once
// What a message names certificates by.

#include "platform/Certificates.h"

namespace platform::cms {

// The serial number as the octets of its INTEGER, big-endian without leading zeros.
Bytes SerialOf(const CertificateContext& certificate);
// The extension's value, else what the host computes from the key.
Bytes SubjectKeyIdentifierOf(const CertificateContext& certificate);

}  // namespace platform::cms

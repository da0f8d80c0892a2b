#pragma once
// Certificates in the crypto library's form, shared by all contexts of the same bytes in a process.

#include "platform/posix/OpenSsl.h"

namespace platform::posix {

// Decodes once for the same bytes: to build the public key costs more than to verify a signature with it, and each
// message brings its signer's certificate anew. Bounded. Null if the crypto library refuses them or something stands
// behind.
X509Ptr SharedNative(ByteView der, const Bytes& sha256);

}  // namespace platform::posix

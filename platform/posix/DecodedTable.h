#pragma once
// Decoded certificates and CRLs, shared by all contexts of the same bytes in a process: each message brings its
// signer's certificate and authorities anew, and to decode them, hash them and build their keys costs more than to
// verify a signature with them.

#include <memory>

#include "platform/posix/Native.h"

namespace platform::posix {

// Null if the table has no certificate of these bytes.
std::shared_ptr<const DecodedCertificate> FindDecoded(ByteView der);
// The table is bounded: it starts anew when it is full, and takes no huge certificates.
void KeepDecoded(const std::shared_ptr<const DecodedCertificate>& certificate);

// The same for CRLs that messages carry: a few of them, of two mebibytes together.
std::shared_ptr<const CrlContext::Impl> FindDecodedCrl(ByteView der);
void KeepDecodedCrl(const std::shared_ptr<const CrlContext::Impl>& crl);

}  // namespace platform::posix

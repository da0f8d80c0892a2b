#pragma once
// What stands around the content of a SignedData (RFC 5652, 5.1) when the content itself is too large to be held: the
// bytes ahead of it and the bytes behind it.

#include <cstdint>
#include <optional>
#include <vector>

#include "platform/Certificates.h"
#include "platform/Hash.h"
#include "platform/Types.h"

namespace toolkit::cms {

class SignedDataFrame {
  public:
    // Absent size: detached, so that the message is the head directly followed by the tail.
    SignedDataFrame(platform::HashAlgorithm hash, std::optional<std::uint64_t> contentSize)
        : hash_(hash), contentSize_(contentSize) {}

    // From the outermost tag to just before the first byte of the content. All lengths are definite, so the head
    // depends on the size of the tail: in its numbers, and near a power of 256 in how many bytes it takes itself.
    [[nodiscard]] platform::Bytes Head(std::uint64_t tailSize) const;
    // The certificates in the order given, and the one signer.
    [[nodiscard]] static platform::Bytes Tail(const std::vector<platform::CertificateContext>& certificates,
                                              platform::ByteView signerInfo);

  private:
    [[nodiscard]] platform::Bytes EncapContentInfoHead() const;
    platform::HashAlgorithm hash_;
    std::optional<std::uint64_t> contentSize_;
};

}  // namespace toolkit::cms

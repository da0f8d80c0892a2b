#include "platform/posix/SoftwareKey.h"

namespace platform::posix {
namespace {

// The contents of the algorithm's object identifier.
ByteView EncodedOid(HashAlgorithm algorithm) {
    static constexpr std::uint8_t kMd2[] = {0x2A, 0x86, 0x48, 0x86, 0xF7, 0x0D, 0x02, 0x02};
    static constexpr std::uint8_t kMd5[] = {0x2A, 0x86, 0x48, 0x86, 0xF7, 0x0D, 0x02, 0x05};
    static constexpr std::uint8_t kSha1[] = {0x2B, 0x0E, 0x03, 0x02, 0x1A};
    static constexpr std::uint8_t kSha224[] = {0x60, 0x86, 0x48, 0x01, 0x65, 0x03, 0x04, 0x02, 0x04};
    static constexpr std::uint8_t kSha256[] = {0x60, 0x86, 0x48, 0x01, 0x65, 0x03, 0x04, 0x02, 0x01};
    static constexpr std::uint8_t kSha384[] = {0x60, 0x86, 0x48, 0x01, 0x65, 0x03, 0x04, 0x02, 0x02};
    static constexpr std::uint8_t kSha512[] = {0x60, 0x86, 0x48, 0x01, 0x65, 0x03, 0x04, 0x02, 0x03};
    static constexpr std::uint8_t kSha3_256[] = {0x60, 0x86, 0x48, 0x01, 0x65, 0x03, 0x04, 0x02, 0x08};
    static constexpr std::uint8_t kSha3_384[] = {0x60, 0x86, 0x48, 0x01, 0x65, 0x03, 0x04, 0x02, 0x09};
    static constexpr std::uint8_t kSha3_512[] = {0x60, 0x86, 0x48, 0x01, 0x65, 0x03, 0x04, 0x02, 0x0A};
    switch (algorithm) {
        case HashAlgorithm::md2:
            return kMd2;
        case HashAlgorithm::md5:
            return kMd5;
        case HashAlgorithm::sha1:
            return kSha1;
        case HashAlgorithm::sha224:
            return kSha224;
        case HashAlgorithm::sha256:
            return kSha256;
        case HashAlgorithm::sha384:
            return kSha384;
        case HashAlgorithm::sha512:
            return kSha512;
        case HashAlgorithm::sha3_256:
            return kSha3_256;
        case HashAlgorithm::sha3_384:
            return kSha3_384;
        case HashAlgorithm::sha3_512:
            return kSha3_512;
    }
    return {};
}

}  // namespace

Bytes DigestInfo(HashAlgorithm algorithm, ByteView digest, bool nullParameters) {
    const ByteView oid = EncodedOid(algorithm);
    if (oid.empty() || digest.size() != DigestSize(algorithm)) return {};
    // Everything stays far below 128 bytes, so each length is one byte.
    const std::size_t identifier = 2 + oid.size() + (nullParameters ? 2 : 0);
    Bytes info = {0x30, static_cast<std::uint8_t>(2 + identifier + 2 + digest.size()),
                  0x30, static_cast<std::uint8_t>(identifier),
                  0x06, static_cast<std::uint8_t>(oid.size())};
    info.insert(info.end(), oid.begin(), oid.end());
    if (nullParameters) info.insert(info.end(), {0x05, 0x00});
    info.insert(info.end(), {0x04, static_cast<std::uint8_t>(digest.size())});
    info.insert(info.end(), digest.begin(), digest.end());
    return info;
}

}  // namespace platform::posix

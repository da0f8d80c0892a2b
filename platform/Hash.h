#pragma once
// Digests, in one call or piece by piece.

#include <memory>
#include <optional>
#include <string_view>

#include "platform/Error.h"
#include "platform/Types.h"

namespace platform {

enum class HashAlgorithm { md2, md5, sha1, sha224, sha256, sha384, sha512, sha3_256, sha3_384, sha3_512 };

// "sha256" and the like, lower case; and the dotted OID (RFC 3370, RFC 5754).
std::string_view NameOf(HashAlgorithm algorithm);
std::string_view OidOf(HashAlgorithm algorithm);
std::optional<HashAlgorithm> HashFromName(std::string_view name);  // letter case and a hyphen do not matter
std::optional<HashAlgorithm> HashFromOid(std::string_view oid);
std::size_t DigestSize(HashAlgorithm algorithm);

// A digest in the making; copies go on from the same state. Empty (and NTE_BAD_ALGID) where the host lacks the
// algorithm.
class Hash {
  public:
    explicit Hash(HashAlgorithm algorithm);
    Hash(const Hash& other);
    Hash& operator=(const Hash& other);
    Hash(Hash&&) noexcept;
    Hash& operator=(Hash&&) noexcept;
    ~Hash();
    explicit operator bool() const { return state_ != nullptr; }
    [[nodiscard]] HashAlgorithm Algorithm() const { return algorithm_; }
    void Update(ByteView bytes);
    // The digest; the object starts anew.
    Bytes Finish();

  private:
    struct State;
    HashAlgorithm algorithm_;
    std::unique_ptr<State> state_;
};

// The digest of one piece; empty if the host lacks the algorithm.
Bytes Digest(HashAlgorithm algorithm, ByteView bytes);

}  // namespace platform

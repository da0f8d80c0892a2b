#pragma once
// The request for a timestamp (RFC 3161, 2.4.1).

#include <optional>
#include <string>

#include "platform/Hash.h"
#include "platform/Types.h"

namespace toolkit::cms {

struct TimestampRequest {
    platform::HashAlgorithm hash = platform::HashAlgorithm::sha256;
    platform::Bytes imprint;  // the digest of what is to be stamped
    std::string policyOid;    // empty: left out
    platform::Bytes nonce;    // magnitude, big-endian; empty: left out
    bool certReq = false;     // written also when it is false
};

// Empty if the policy is no object identifier.
platform::Bytes EncodeTimestampRequest(const TimestampRequest& request);

// Twelve random bytes of which the first is 0x01 to 0x7F, so that they are a positive INTEGER of exactly that length.
// Empty if the host has no randomness.
platform::Bytes MakeTimestampNonce();

}  // namespace toolkit::cms

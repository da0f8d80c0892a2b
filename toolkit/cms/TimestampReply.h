#pragma once
// An authority's answer (RFC 3161, 2.4.2): what it says and the token in it.

#include <optional>
#include <string>
#include <vector>

#include "platform/Types.h"

namespace toolkit::cms {

struct TimestampReply {
    std::int64_t status = -1;           // PKIStatus
    std::vector<std::string> texts;     // the authority's own words, UTF-8
    std::vector<std::string> failures;  // names of the failInfo bits that are set
    platform::Bytes token;              // TimeStampToken as it came; empty if there is none
    [[nodiscard]] bool Granted() const { return status == 0 || status == 1; }
};

// Empty for what is no TimeStampResp.
std::optional<TimestampReply> DecodeTimestampReply(platform::ByteView reply);

// "granted", "grantedWithMods", "rejection", "waiting", "revocationWarning", "revocationNotification" or "unknown".
std::string_view PkiStatusName(std::int64_t status);

}  // namespace toolkit::cms

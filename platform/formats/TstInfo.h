#pragma once
// TSTInfo, the content of a timestamp token (RFC 3161 2.4.2).

#include <optional>
#include <string>

#include "platform/formats/Der.h"

namespace platform {

struct TstInfo {
    std::string policy;  // dotted OID
    AlgorithmIdentifier imprintAlgorithm;
    Bytes imprint;
    Bytes serialNumber;   // big-endian magnitude
    std::string genTime;  // the GeneralizedTime as it stands, for example "20240301101500.123Z"
    Bytes nonce;          // big-endian magnitude; empty if absent
};

// Empty if the bytes are no TSTInfo, or if anything stands behind its known fields. The genTime must be a time in UTC
// to the second, with or without a fraction; that it is a day of the calendar is checked too.
std::optional<TstInfo> ReadTstInfo(ByteView der);

}  // namespace platform

#pragma once
// TSTInfo, the content of a timestamp token (RFC 3161 2.4.2).

#include <optional>
#include <string>

#include "units/Der.h"

namespace units {

struct TstInfo {
    std::string policy;  // dotted OID
    AlgorithmIdentifier imprintAlgorithm;
    platform::Bytes imprint;
    platform::Bytes serialNumber;  // big-endian magnitude
    std::string genTime;           // the GeneralizedTime as it stands, for example "20240301101500.123Z"
    platform::Bytes nonce;         // big-endian magnitude; empty if absent
};

// Empty if the bytes are no TSTInfo, or if anything stands behind its known fields. The genTime must be a time in UTC
// to the second, with or without a fraction; that it is a day of the calendar is checked too.
std::optional<TstInfo> ReadTstInfo(platform::ByteView der);

}  // namespace units

#pragma once
// Judging one path (RFC 5280, 6.1): every fault of every element, not only the first. Revocation is a question of its
// own: RevocationService.

#include "platform/posix/PathBuilder.h"

namespace platform::posix {

struct Judgement {
    FILETIME at = 0;
    std::vector<std::string> usages;  // each must be allowed by every element
};

// What differs from the bare algorithm: a trusted root is held to what it says of itself (validity, basic and name
// constraints, key usage), except that it may be silent on being an authority and that its own signature and its
// policies do not count; restrictions of policies in it do. SHA-1 is accepted, MD5 and RSA or DSA keys under 1024 bits
// are broken signatures. Periods of validity need not nest.
ChainContext JudgePath(const CandidatePath& path, const Judgement& judgement, ChainSources& sources);

// How bad a status is, by the order in which the base policy looks: 0 for the worst, kNoFault for none.
constexpr std::size_t kNoFault = 99;
std::size_t SeverityOf(std::uint32_t status);

}  // namespace platform::posix

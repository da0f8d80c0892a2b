#pragma once
// What stands beside a signature in the tree of results.

#include <string>

#include "src/verification/SignatureEntry.h"

namespace results {

// The highest level plus one; 0 without entries.
std::uint32_t LevelCount(const verification::SignatureEntries& entries);

// "name (time) profile" where all signatures stand at one level, "name (time)" below the item of their level. Without a
// time of signing the bracket is left out; at one level the time is the timestamp's, if there is one.
std::u16string TreeText(const verification::SignatureEntry& entry, bool withLevels);

// "Ниво 1" for level 0.
std::u16string LevelText(std::uint32_t level);

}  // namespace results

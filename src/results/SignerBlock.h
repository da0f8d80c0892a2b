#pragma once

#include <cstddef>
#include <string>

#include "src/verification/SignatureEntry.h"

namespace results {

// A few lines for a terminal on one signer, counted from 1: who, when, what is wrong with the signature and with the
// certificate, each by itself. UTF-8, ends with a line feed; names that others chose stay on their line.
std::string SignerBlock(const verification::SignatureEntry& entry, std::size_t number);

}  // namespace results

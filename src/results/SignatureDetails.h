#pragma once

#include <string>
#include <vector>

#include "src/verification/SignatureEntry.h"

namespace results {

struct DetailRow {
    std::u16string attribute, details;
    bool marked = false;  // something about it is not good
};

// One signature, row by row, as a person reads it. Rows that say nothing about this one are left out.
std::vector<DetailRow> DetailsOf(const verification::SignatureEntry& entry);

}  // namespace results

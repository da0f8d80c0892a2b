#pragma once
// The findings of a verification as the JSON tree that callers read.

#include <string>

#include "toolkit/cms/Findings.h"

namespace toolkit::cms {

// Compact JSON in UTF-8: {"pkcs7":{"verify":{...}}}. Members that have nothing to say are left out; objects of
// attributes are named by their OID. Digests are in Base64, serial numbers and key identifiers in upper-case
// hexadecimal.
std::string ToJson(const Findings& findings);

}  // namespace toolkit::cms

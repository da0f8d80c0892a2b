#pragma once

#include <cstdint>

#include "norvik/norvik.h"

namespace certificates {

// Tells the keys of a provider (null or empty: the software keys; else a PKCS#11 module or a token) line by line, to
// the callback, always with error true, and to the log. No PIN is asked for.
void ReportKeys(const char16_t* provider, NorvikRecordCallback callback, std::uint64_t context);

}  // namespace certificates

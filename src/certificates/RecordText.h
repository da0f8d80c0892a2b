#pragma once
// Texts out of a certificate's record as callbacks and buffers give them.

#include <string>

#include "toolkit/CkJsonObjectW.h"

namespace certificates {

// Any value has a text; one that is absent or too large for that counts as empty.
std::u16string TextOf(toolkit::CkJsonObjectW& record, const char16_t* key);

// A member that is a moment, as the short date of the user's locale. It is the local time moved to local time once
// more: values that callers have always been given.
std::u16string ShortDateOf(toolkit::CkJsonObjectW& record, const char16_t* key);

}  // namespace certificates

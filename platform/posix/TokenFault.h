#pragma once
// What a token answers, told in our words: each PKCS#11 return value has its code, and each code its text.

#include <p11-kit/pkcs11.h>

#include <string>

#include "platform/Error.h"

namespace platform::posix {

// "CKR_PIN_INCORRECT (0xa0)".
std::string NameOfReturnValue(CK_RV value);
ErrorCode ErrorOfReturnValue(CK_RV value);

// Notes a failed call: last error, detail and a remark in the log. `token` is the token's label, empty for none.
// Answers false, so that a caller can return it.
bool TokenFault(CK_RV value, const char* call, const std::string& token);
// The same for a failure that is not a return value of the token's.
bool TokenTrouble(ErrorCode code, const std::string& remark, const std::string& token);
// Forgets the detail of an earlier call, so that it is not told of a new one.
void ForgetTokenFault();

}  // namespace platform::posix

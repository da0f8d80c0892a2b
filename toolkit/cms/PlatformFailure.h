#pragma once
// How a failure of the host's services is told in the log of an operation.

#include <string_view>

#include "platform/Error.h"
#include "toolkit/ClsBase.h"

namespace toolkit::cms {

// The message, and below it the calling thread's last error: its number and, where the host has one, its sentence.
void LogPlatformFailure(OperationLog& log, std::string_view message);
// The same with a code that a service answered instead.
void LogPlatformFailure(OperationLog& log, platform::ErrorCode code, std::string_view message);

}  // namespace toolkit::cms

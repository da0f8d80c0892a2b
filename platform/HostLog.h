#pragma once
// Remarks of the host's services (a broken file in a store was skipped, a token did not answer) for the application's
// log.

#include <string_view>

namespace platform {

// Who gets the remarks, process-wide; null: nobody. May be called from any thread.
void SetHostLog(void (*handler)(std::string_view utf8));

}  // namespace platform

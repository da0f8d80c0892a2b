#pragma once

#include <string>

namespace dialogs {

// The name of the platform plugin that can show windows in this process now, by what the person set or the session
// offers. A display counts only if it really answers, for the toolkit ends the process where it does not. Throws
// ui::Unavailable.
std::string UsablePlatform();

// Whether the X server of this session has a window of this number.
bool HasXWindow(unsigned long id);

}  // namespace dialogs

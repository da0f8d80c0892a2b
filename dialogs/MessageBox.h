#pragma once

#include "src/ui/UserInterface.h"

namespace dialogs {

// Shows a message above the dialog that is open, or the caller's window, and returns when the person has seen it.
void ShowMessageBox(const ui::Message& message);

}  // namespace dialogs

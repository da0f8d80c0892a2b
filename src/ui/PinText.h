#pragma once

#include <string>

#include "platform/Keys.h"

namespace ui {

// The question for a PIN or a key's passphrase as a person reads it, with a warning on a line before it where few tries
// are left. UTF-8.
std::string PinQuestion(const platform::PinRequest& request);

}  // namespace ui

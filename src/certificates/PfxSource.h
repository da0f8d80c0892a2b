#pragma once

#include <string>

#include "crypt/CryptStore.h"
#include "platform/Secret.h"

namespace certificates {

// Opens a PFX file: without a password where it has none, whatever was given; else with the given one; else with the
// one that the person is asked for, once. Keys come along for this process alone.
// Throws std::runtime_error ("Invalid password for ...") for a wrong password and for a file that is no PFX. The store
// is null where the person cancels, and, with the reason in lastError, where the file cannot be read.
tessaly::CryptStore OpenPfx(const std::u16string& file, const platform::Secret& password);

}  // namespace certificates

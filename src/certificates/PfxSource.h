#pragma once

#include <stdexcept>
#include <string>

#include "crypt/CryptStore.h"
#include "platform/Secret.h"

namespace certificates {

// A wrong password, or a file that is no PFX: "Invalid password for " and the file.
class InvalidPassword : public std::runtime_error {
  public:
    explicit InvalidPassword(const std::u16string& file);
};

// Opens a PFX file: without a password where it has none, whatever was given; else with the given one; else with the
// one that the person is asked for, once. Keys come along for this process alone.
// Throws InvalidPassword. The store is null where the person cancels, and, with the reason in lastError, where the file
// cannot be read.
tessaly::CryptStore OpenPfx(const std::u16string& file, const platform::Secret& password);

}  // namespace certificates

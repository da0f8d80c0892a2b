#pragma once

#include "crypt/CommonClass.h"
#include "platform/Keys.h"

namespace tessaly {

// Owns the handle of a private key. On this host all keys are of the newer of the two key worlds and a handle is a
// value, so letting go of it closes it; one that the host keeps (mustFree false) is shared with the host and stays open
// there.
class CryptContext : public CommonClass {
  public:
    CryptContext() = default;
    // Finds the key that belongs to the certificate and compares the public keys. False with the reason in lastError,
    // and without a key.
    bool Acquire(const platform::CertificateContext& certificate);

    platform::PrivateKey handle;
    bool mustFree = false;
    bool isCngKey = false;
};

}  // namespace tessaly

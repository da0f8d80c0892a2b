#pragma once

#include <string>

#include "crypt/CommonClass.h"
#include "platform/Stores.h"

namespace tessaly {

// Owns one certificate store. A store that did not open leaves its reason in lastError; it counts as empty.
class CryptStore : public CommonClass {
  public:
    CryptStore();                                     // a memory store
    explicit CryptStore(const std::u16string& name);  // a system store of the current user, such as "MY" or "ROOT"
    // Takes over what somebody else opened; may be null.
    explicit CryptStore(platform::CertStore opened) : store(std::move(opened)) {}

    [[nodiscard]] std::size_t GetCertificateCount() const;

    platform::CertStore store;
};

}  // namespace tessaly

#pragma once

#include <string>
#include <string_view>

#include "crypt/CommonClass.h"
#include "platform/Certificates.h"

namespace tessaly {

// One entry of the host's table of object identifiers, which owns it.
class CryptOID : public CommonClass {
  public:
    // By the dotted text, in all groups. False with the reason in lastError if the table has no such entry.
    bool Find(std::string_view oid);
    // Empty before a successful Find.
    [[nodiscard]] std::u16string Name() const { return entry_ == nullptr ? std::u16string() : entry_->pwszName; }

  private:
    const platform::CRYPT_OID_INFO* entry_ = nullptr;
};

}  // namespace tessaly

#pragma once

#include <optional>

#include "platform/Types.h"
#include "toolkit/CkWideCharBase.h"

namespace toolkit {

// One buffer of bytes, made at first use.
class CkByteData : public CkObject {
  public:
    // The whole file; false, with the buffer empty, if it cannot be read.
    bool LoadFile(const char16_t* path);
    [[nodiscard]] platform::ByteView Content() const;

  private:
    std::optional<platform::Bytes> bytes_;
};

}  // namespace toolkit

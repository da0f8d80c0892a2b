#pragma once

#include <memory>

#include "toolkit/CkWideCharBase.h"
#include "toolkit/ClsBinData.h"

namespace toolkit {

// The outer side of ClsBinData.
class CkBinDataW : public CkWideCharBase {
  public:
    CkBinDataW() : data_(std::make_unique<ClsBinData>()) {}

    bool AppendBinary2(const void* bytes, std::size_t length);  // false for a null pointer with a length
    bool LoadEncoded(const char16_t* text, const char16_t* encoding);
    bool LoadFile(const char16_t* path);
    const char16_t* GetEncoded(const char16_t* encoding);
    const char16_t* GetString(const char16_t* charset);

    [[nodiscard]] ClsBinData& Inner() { return *data_; }

  private:
    ClsBase& Working() override { return *data_; }

    std::unique_ptr<ClsBinData> data_;
};

}  // namespace toolkit

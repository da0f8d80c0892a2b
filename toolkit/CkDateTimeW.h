#pragma once

#include <memory>

#include "toolkit/CkWideCharBase.h"
#include "toolkit/ClsDateTime.h"

namespace toolkit {

// The outer side of ClsDateTime.
class CkDateTimeW : public CkWideCharBase {
  public:
    CkDateTimeW() : date_(std::make_unique<ClsDateTime>()) {}

    bool SetFromTimestamp(const char16_t* text) { return date_->SetFromTimestamp(Utf8(text)); }
    void SetFromFileTime(bool local, platform::FILETIME moment) { date_->SetFromFileTime(local, moment); }
    void SetFromUnixTime(bool local, std::int64_t seconds) { date_->SetFromUnixTime(local, seconds); }
    [[nodiscard]] platform::FILETIME GetAsFileTime(bool local) const { return date_->GetAsFileTime(local); }
    [[nodiscard]] std::int64_t GetAsUnixTime(bool local) const { return date_->GetAsUnixTime(local); }
    [[nodiscard]] std::int64_t GetAsUnixTime64(bool local) const { return date_->GetAsUnixTime64(local); }
    const char16_t* GetAsTimestamp(bool local) { return Result(date_->GetAsTimestamp(local)); }

  private:
    ClsBase& Working() override { return *date_; }

    std::unique_ptr<ClsDateTime> date_;
};

}  // namespace toolkit

#pragma once

#include <memory>

#include "toolkit/CkWideCharBase.h"
#include "toolkit/ClsJsonArray.h"

namespace toolkit {

class CkJsonObjectW;

// The outer side of ClsJsonArray. A null text argument counts as empty.
class CkJsonArrayW : public CkWideCharBase {
  public:
    CkJsonArrayW();
    explicit CkJsonArrayW(std::unique_ptr<ClsJsonArray> json);

    bool Load(const char16_t* text);
    const char16_t* Emit();
    void put_EmitCompact(bool compact) { json_->SetEmitCompact(compact); }
    void put_EmitCrLf(bool crLf) { json_->SetEmitCrLf(crLf); }

    [[nodiscard]] int Size() const { return json_->Size(); }
    std::unique_ptr<CkJsonObjectW> ObjectAt(int index);
    bool AddStringAt(int index, const char16_t* text);
    bool AddObjectCopyAt(int index, const CkJsonObjectW& object);

    [[nodiscard]] const ClsJsonArray& Inner() const { return *json_; }

  private:
    ClsBase& Working() override { return *json_; }

    std::unique_ptr<ClsJsonArray> json_;
};

}  // namespace toolkit

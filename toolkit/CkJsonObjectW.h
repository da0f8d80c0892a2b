#pragma once

#include <memory>

#include "toolkit/CkWideCharBase.h"
#include "toolkit/ClsJsonObject.h"

namespace toolkit {

class CkJsonArrayW;

// The outer side of ClsJsonObject. A null text argument counts as empty.
class CkJsonObjectW : public CkWideCharBase {
  public:
    CkJsonObjectW();
    explicit CkJsonObjectW(std::unique_ptr<ClsJsonObject> json);

    bool Load(const char16_t* text);
    const char16_t* Emit();
    void put_EmitCompact(bool compact) { json_->SetEmitCompact(compact); }
    void put_EmitCrLf(bool crLf) { json_->SetEmitCrLf(crLf); }
    void put_I(int value) { json_->SetI(value); }
    void put_J(int value) { json_->SetJ(value); }
    void put_K(int value) { json_->SetK(value); }

    [[nodiscard]] int Size() const { return json_->Size(); }
    bool HasMember(const char16_t* path);
    const char16_t* StringOf(const char16_t* path);  // null if the path leads nowhere
    bool BoolOf(const char16_t* path);
    int IntOf(const char16_t* path);
    int SizeOfArray(const char16_t* path);
    std::unique_ptr<CkJsonArrayW> ArrayOf(const char16_t* path);

    bool UpdateString(const char16_t* path, const char16_t* text);
    bool UpdateBool(const char16_t* path, bool value);
    bool UpdateInt(const char16_t* path, int value);
    bool AddStringAt(int index, const char16_t* name, const char16_t* text);
    bool AddObjectCopyAt(int index, const char16_t* name, const CkJsonObjectW& object);
    bool AddArrayCopyAt(int index, const char16_t* name, const CkJsonArrayW& array);

    [[nodiscard]] const ClsJsonObject& Inner() const { return *json_; }

  private:
    ClsBase& Working() override { return *json_; }

    std::unique_ptr<ClsJsonObject> json_;
};

}  // namespace toolkit

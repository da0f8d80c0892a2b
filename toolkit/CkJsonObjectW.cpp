#include "toolkit/CkJsonObjectW.h"

#include "toolkit/CkJsonArrayW.h"

namespace toolkit {

CkJsonObjectW::CkJsonObjectW() : json_(std::make_unique<ClsJsonObject>()) {}

CkJsonObjectW::CkJsonObjectW(std::unique_ptr<ClsJsonObject> json) : json_(std::move(json)) {}

bool CkJsonObjectW::Load(const char16_t* text) {
    return json_->Load(Utf8(text));
}

const char16_t* CkJsonObjectW::Emit() {
    return WholeResult(json_->Emit());
}

bool CkJsonObjectW::HasMember(const char16_t* path) {
    return json_->HasMember(Utf8(path));
}

const char16_t* CkJsonObjectW::StringOf(const char16_t* path) {
    return WholeResult(json_->StringOf(Utf8(path)));
}

bool CkJsonObjectW::BoolOf(const char16_t* path) {
    return json_->BoolOf(Utf8(path));
}

int CkJsonObjectW::IntOf(const char16_t* path) {
    return json_->IntOf(Utf8(path));
}

int CkJsonObjectW::SizeOfArray(const char16_t* path) {
    return json_->SizeOfArray(Utf8(path));
}

std::unique_ptr<CkJsonArrayW> CkJsonObjectW::ArrayOf(const char16_t* path) {
    auto array = json_->ArrayOf(Utf8(path));
    return array == nullptr ? nullptr : std::make_unique<CkJsonArrayW>(std::move(array));
}

bool CkJsonObjectW::UpdateString(const char16_t* path, const char16_t* text) {
    return json_->UpdateString(Utf8(path), Utf8(text));
}

bool CkJsonObjectW::UpdateBool(const char16_t* path, bool value) {
    return json_->UpdateBool(Utf8(path), value);
}

bool CkJsonObjectW::UpdateInt(const char16_t* path, int value) {
    return json_->UpdateInt(Utf8(path), value);
}

bool CkJsonObjectW::AddStringAt(int index, const char16_t* name, const char16_t* text) {
    return json_->AddStringAt(index, Utf8(name), Utf8(text));
}

bool CkJsonObjectW::AddObjectCopyAt(int index, const char16_t* name, const CkJsonObjectW& object) {
    return json_->AddObjectCopyAt(index, Utf8(name), object.Inner());
}

bool CkJsonObjectW::AddArrayCopyAt(int index, const char16_t* name, const CkJsonArrayW& array) {
    return json_->AddArrayCopyAt(index, Utf8(name), array.Inner());
}

}  // namespace toolkit

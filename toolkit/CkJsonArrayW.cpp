#include "toolkit/CkJsonArrayW.h"

#include "toolkit/CkJsonObjectW.h"

namespace toolkit {

CkJsonArrayW::CkJsonArrayW() : json_(std::make_unique<ClsJsonArray>()) {}

CkJsonArrayW::CkJsonArrayW(std::unique_ptr<ClsJsonArray> json) : json_(std::move(json)) {}

bool CkJsonArrayW::Load(const char16_t* text) {
    return json_->Load(Utf8(text));
}

const char16_t* CkJsonArrayW::Emit() {
    return WholeResult(json_->Emit());
}

std::unique_ptr<CkJsonObjectW> CkJsonArrayW::ObjectAt(int index) {
    auto object = json_->ObjectAt(index);
    return object == nullptr ? nullptr : std::make_unique<CkJsonObjectW>(std::move(object));
}

bool CkJsonArrayW::AddStringAt(int index, const char16_t* text) {
    return json_->AddStringAt(index, Utf8(text));
}

bool CkJsonArrayW::AddObjectCopyAt(int index, const CkJsonObjectW& object) {
    return json_->AddObjectCopyAt(index, object.Inner());
}

}  // namespace toolkit

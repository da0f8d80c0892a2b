#include "toolkit/CkCrypt2W.h"
#include "toolkit/CkJsonObjectW.h"

namespace toolkit {

bool CkCrypt2W::VerifyP7M(const char16_t* input, const char16_t* output) {
    return crypt_->VerifyP7M(Utf8(input), Utf8(output));
}

std::unique_ptr<CkJsonObjectW> CkCrypt2W::LastJsonData() {
    auto json = crypt_->LastJsonData();
    return json ? std::make_unique<CkJsonObjectW>(std::move(json)) : nullptr;
}

}  // namespace toolkit

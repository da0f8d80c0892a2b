#include "toolkit/CkBinDataW.h"
#include "toolkit/CkByteData.h"
#include "toolkit/CkCrypt2W.h"
#include "toolkit/CkJsonObjectW.h"

namespace toolkit {

bool CkCrypt2W::VerifyBytes(CkByteData& content, CkByteData& signature) {
    return crypt_->VerifyBytes(content.Content(), signature.Content());
}

bool CkCrypt2W::OpaqueVerifyBd(CkBinDataW& data) {
    return crypt_->OpaqueVerifyBd(data.Inner());
}

bool CkCrypt2W::VerifyP7M(const char16_t* input, const char16_t* output) {
    return crypt_->VerifyP7M(Utf8(input), Utf8(output));
}

std::unique_ptr<CkJsonObjectW> CkCrypt2W::LastJsonData() {
    auto json = crypt_->LastJsonData();
    return json ? std::make_unique<CkJsonObjectW>(std::move(json)) : nullptr;
}

}  // namespace toolkit

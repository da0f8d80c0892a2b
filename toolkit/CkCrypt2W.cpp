#include "toolkit/CkCrypt2W.h"

#include "toolkit/CkCertW.h"
#include "toolkit/CkHttpW.h"

namespace toolkit {

CkCrypt2W::CkCrypt2W() : crypt_(std::make_shared<ClsCrypt2>()) {}

void CkCrypt2W::put_HashAlgorithm(const char16_t* name) {
    crypt_->SetHashAlgorithm(Utf8(name));
}

void CkCrypt2W::put_CadesEnabled(bool on) {
    crypt_->SetCadesEnabled(on);
}

void CkCrypt2W::put_IncludeCertChain(bool on) {
    crypt_->SetIncludeCertChain(on);
}

void CkCrypt2W::put_SigningAttributes(const char16_t* json) {
    crypt_->SetSigningAttributes(Utf8(json));
}

void CkCrypt2W::put_CmsOptions(const char16_t* json) {
    crypt_->SetCmsOptions(Utf8(json));
}

void CkCrypt2W::put_DerOrder(bool on) {
    crypt_->SetDerOrder(on);
}

void CkCrypt2W::SetProgress(ProgressHandler handler) {
    crypt_->SetProgress(std::move(handler));
}

bool CkCrypt2W::SetSigningCert(CkCertW& certificate) {
    return crypt_->SetSigningCert(certificate.Shared()->Certificate());
}

void CkCrypt2W::SetTsaHttpObj(CkHttpW& http) {
    crypt_->SetTsaHttp(http.Shared());
}

bool CkCrypt2W::CreateP7M(const char16_t* input, const char16_t* output) {
    return crypt_->CreateP7M(Utf8(input), Utf8(output));
}

bool CkCrypt2W::CreateP7S(const char16_t* input, const char16_t* output) {
    return crypt_->CreateP7S(Utf8(input), Utf8(output));
}

}  // namespace toolkit

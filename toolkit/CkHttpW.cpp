#include "toolkit/CkHttpW.h"

namespace toolkit {

CkHttpW::CkHttpW() : http_(std::make_shared<ClsHttp>()) {}

void CkHttpW::put_BasicAuth(bool on) {
    http_->SetBasicAuth(on);
}

void CkHttpW::put_Login(const char16_t* login) {
    http_->SetLogin(Utf8(login));
}

void CkHttpW::put_Password(const char16_t* password) {
    std::string text = Utf8(password);
    http_->SetPassword(platform::Secret(text));
    platform::Wipe(text.data(), text.size());
}

}  // namespace toolkit

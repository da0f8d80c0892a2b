#include "toolkit/CkCertW.h"

namespace toolkit {

CkCertW::CkCertW() : cert_(std::make_shared<ClsCert>()) {}

bool CkCertW::LoadByThumbprint(const char16_t* thumbprint, const char16_t* encoding) {
    return cert_->LoadByThumbprint(Utf8(thumbprint), Utf8(encoding));
}

int CkCertW::CheckRevoked() {
    return cert_->CheckRevoked();
}

}  // namespace toolkit

#pragma once
// One certificate, found in the host's stores.

#include "toolkit/CkWideCharBase.h"
#include "toolkit/ClsCert.h"

namespace toolkit {

class CkCertW : public CkWideCharBase {
  public:
    CkCertW();
    // A hash in "hex" or "Base64", of 16 (MD5) or 20 (SHA-1) bytes. False if no store has the certificate.
    bool LoadByThumbprint(const char16_t* thumbprint, const char16_t* encoding);
    // 1: revoked. 0: known not to be. -1: nobody could tell, or no certificate is loaded.
    int CheckRevoked();
    [[nodiscard]] const std::shared_ptr<ClsCert>& Shared() const { return cert_; }

  protected:
    ClsBase& Working() override { return *cert_; }

  private:
    std::shared_ptr<ClsCert> cert_;
};

}  // namespace toolkit

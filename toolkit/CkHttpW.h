#pragma once
// The settings of one HTTP client.

#include "toolkit/CkWideCharBase.h"
#include "toolkit/ClsHttp.h"

namespace toolkit {

class CkHttpW : public CkWideCharBase {
  public:
    CkHttpW();
    // Whether Login and Password go along with a request (RFC 7617).
    void put_BasicAuth(bool on);
    void put_Login(const char16_t* login);
    void put_Password(const char16_t* password);
    // Whoever takes this keeps the client alive beyond this object.
    [[nodiscard]] const std::shared_ptr<ClsHttp>& Shared() const { return http_; }

  protected:
    ClsBase& Working() override { return *http_; }

  private:
    std::shared_ptr<ClsHttp> http_;
};

}  // namespace toolkit

#pragma once
// A SoftHSM2 token made for one test, and p11-kit pointed at a configuration of the test's own, so that neither the
// tokens nor the modules of the real user are touched.

#include "tests/support/Pki.h"

namespace tests {

// Makes p11-kit know this one module and start anew. Undone modules stay with p11-kit until the next call.
void UsePkcs11Module(Profile& profile, const std::string& name, const std::filesystem::path& module);
// No module at all.
void UseNoPkcs11Modules(Profile& profile);

class SoftToken {
  public:
    static bool Available();  // softhsm2-util, pkcs11-tool and the module are installed

    explicit SoftToken(Profile& profile, std::string label = "Карта", std::string pin = "246813");
    ~SoftToken();
    SoftToken(const SoftToken&) = delete;
    SoftToken& operator=(const SoftToken&) = delete;

    // The certificate and its private key, or only the certificate.
    void Put(const Certificate& certificate, const std::string& hexId, bool withKey = true);
    [[nodiscard]] const std::string& Pin() const { return pin_; }
    [[nodiscard]] static std::filesystem::path Module();
    // The folder that is the token: without it there is none.
    [[nodiscard]] std::filesystem::path Folder() const { return profile_.Folder() / "softhsm"; }

  private:
    Profile& profile_;
    std::string label_, pin_;
};

}  // namespace tests

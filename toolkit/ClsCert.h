#pragma once
// One certificate, found in the host's stores.

#include <string_view>

#include "platform/Certificates.h"
#include "toolkit/ClsBase.h"

namespace toolkit {

class ClsCert : public ClsBase {
  public:
    // Finds the certificate by its MD5 (16 bytes) or SHA-1 (20 bytes) hash. `encoding` is "hex" (blanks and colons
    // between the digits do not matter) or "Base64". Eight system stores are asked in a fixed order, each first for the
    // user and then for the machine; what costs more to open - tokens, the host's trust anchors - only when no folder
    // has the certificate. On failure the object keeps the certificate it had.
    bool LoadByThumbprint(std::string_view thumbprint, std::string_view encoding);
    // Takes a certificate as it stands, with the private key that came with it.
    void SetCertificate(platform::CertificateContext certificate);
    // 1: revoked. 0: known not to be. -1: nobody could tell, or no certificate.
    int CheckRevoked();
    [[nodiscard]] platform::CertificateContext Certificate() const;

  private:
    platform::CertificateContext certificate_;
};

}  // namespace toolkit

#pragma once
// The process's list of trusted roots.

#include <vector>

#include "platform/Certificates.h"
#include "toolkit/ClsBase.h"

namespace toolkit {

class ClsTrustedRoots : public ClsBase {
  public:
    // Process-wide, true at the start: the roots in the system's stores count as trusted.
    static void TrustSystemCaRoots(bool trust);
    // Makes this object's list, which starts empty, the process's list; the one before is gone.
    bool Activate();
    // What the last Activate of any thread left.
    static std::vector<platform::CertificateContext> Active();

  private:
    std::vector<platform::CertificateContext> roots_;
};

}  // namespace toolkit

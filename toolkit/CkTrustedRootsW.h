#pragma once
// The process's list of trusted roots.

#include "toolkit/CkWideCharBase.h"
#include "toolkit/ClsTrustedRoots.h"

namespace toolkit {

class CkTrustedRootsW : public CkWideCharBase {
  public:
    // Process-wide, not of this object alone.
    void put_TrustSystemCaRoots(bool trust) { ClsTrustedRoots::TrustSystemCaRoots(trust); }
    bool Activate() { return roots_.Activate(); }

  protected:
    ClsBase& Working() override { return roots_; }

  private:
    ClsTrustedRoots roots_;
};

}  // namespace toolkit

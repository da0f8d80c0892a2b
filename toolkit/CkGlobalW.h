#pragma once
// The toolkit's process-wide side: what its objects set for the whole process goes back to how it was found.

#include "platform/Chains.h"
#include "toolkit/CkWideCharBase.h"

namespace toolkit {

class CkGlobalW : public CkWideCharBase {
  public:
    ~CkGlobalW() override { Finalize(); }
    // The system's roots count as trusted again.
    void Finalize() { platform::TrustSystemRoots(true); }

  protected:
    ClsBase& Working() override { return working_; }

  private:
    ClsBase working_;
};

}  // namespace toolkit

#pragma once
// The process's list of trusted roots.

#include "toolkit/ClsBase.h"

namespace toolkit {

class ClsTrustedRoots : public ClsBase {
  public:
    // Process-wide, true at the start: the roots in the system's stores count as trusted.
    static void TrustSystemCaRoots(bool trust);
    // Makes this object's list the process's. Roots of its own it has none: those of the system are all there are.
    bool Activate();
};

}  // namespace toolkit

#include "toolkit/ClsTrustedRoots.h"

#include "platform/Chains.h"

namespace toolkit {

void ClsTrustedRoots::TrustSystemCaRoots(bool trust) {
    platform::TrustSystemRoots(trust);
}

bool ClsTrustedRoots::Activate() {
    Operation operation(*this, "Activate");
    operation.Log().Value("numTrustedRoots", "0");
    return operation.Finish(true);
}

}  // namespace toolkit

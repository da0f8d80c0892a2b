#include "toolkit/ClsTrustedRoots.h"

#include <string>

#include "platform/Chains.h"

namespace toolkit {

namespace {

struct ActiveRoots {
    std::mutex mutex;
    std::vector<platform::CertificateContext> roots;
};

ActiveRoots& ProcessRoots() {
    static ActiveRoots active;
    return active;
}

}  // namespace

void ClsTrustedRoots::TrustSystemCaRoots(bool trust) {
    platform::TrustSystemRoots(trust);
}

bool ClsTrustedRoots::Activate() {
    Operation operation(*this, "Activate");
    operation.Log().Value("numTrustedRoots", std::to_string(roots_.size()));
    ActiveRoots& active = ProcessRoots();
    const std::lock_guard lock(active.mutex);
    active.roots = roots_;
    return operation.Finish(true);
}

std::vector<platform::CertificateContext> ClsTrustedRoots::Active() {
    ActiveRoots& active = ProcessRoots();
    const std::lock_guard lock(active.mutex);
    return active.roots;
}

}  // namespace toolkit

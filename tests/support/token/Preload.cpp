// Preloaded into a program under test: gives p11-kit the test's configuration, as SoftToken and FakeToken do for the
// test's own process. p11-kit has no variable for that and leaves the user's own configuration aside for root.

#define P11_KIT_FUTURE_UNSTABLE_API
#include <p11-kit/p11-kit.h>

#include <cstdlib>
#include <string>

namespace {

__attribute__((constructor)) void UseConfigurationOfTheTest() {
    const char* folder = std::getenv("NORVIK_TEST_PKCS11");
    if (folder == nullptr) return;
    static std::string configuration, modules;  // p11-kit keeps the pointers
    configuration = std::string(folder) + "/pkcs11.conf";
    modules = std::string(folder) + "/modules";
    p11_kit_override_system_files(configuration.c_str(), "/nonexistent", "/nonexistent", modules.c_str(),
                                  "/nonexistent");
}

}  // namespace

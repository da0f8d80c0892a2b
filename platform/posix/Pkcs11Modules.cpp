#include <dlfcn.h>
#include <p11-kit/p11-kit.h>
#include <unistd.h>

#include <cstdlib>
#include <mutex>

#include "platform/Keys.h"
#include "platform/posix/HostLibrary.h"
#include "platform/posix/Native.h"
#include "platform/posix/Pkcs11.h"
#include "platform/posix/TokenFault.h"

namespace platform {
namespace posix {
namespace {

// The calls of p11-kit that are used here, bound at run time.
struct P11Kit {
    decltype(&p11_kit_modules_load_and_initialize) loadAndInitialize = nullptr;
    decltype(&p11_kit_modules_finalize_and_release) finalizeAndRelease = nullptr;
    decltype(&p11_kit_module_load) loadFile = nullptr;
    decltype(&p11_kit_module_initialize) initialize = nullptr;
    decltype(&p11_kit_module_finalize) finalize = nullptr;
    decltype(&p11_kit_module_release) release = nullptr;
    decltype(&p11_kit_module_get_name) name = nullptr;
    decltype(&p11_kit_module_get_filename) fileName = nullptr;
    decltype(&p11_kit_config_option) option = nullptr;
    decltype(&p11_kit_message) message = nullptr;
    decltype(&p11_kit_be_quiet) beQuiet = nullptr;
};

const P11Kit* LoadP11Kit() {
    static const P11Kit* const loaded = []() -> const P11Kit* {
        void* library = dlopen("libp11-kit.so.0", RTLD_NOW | RTLD_LOCAL);
        if (library == nullptr) return nullptr;
        static P11Kit kit;
        const bool whole = FindFunction(library, "p11_kit_modules_load_and_initialize", kit.loadAndInitialize) &&
                           FindFunction(library, "p11_kit_modules_finalize_and_release", kit.finalizeAndRelease) &&
                           FindFunction(library, "p11_kit_module_load", kit.loadFile) &&
                           FindFunction(library, "p11_kit_module_initialize", kit.initialize) &&
                           FindFunction(library, "p11_kit_module_finalize", kit.finalize) &&
                           FindFunction(library, "p11_kit_module_release", kit.release) &&
                           FindFunction(library, "p11_kit_module_get_name", kit.name) &&
                           FindFunction(library, "p11_kit_module_get_filename", kit.fileName) &&
                           FindFunction(library, "p11_kit_config_option", kit.option) &&
                           FindFunction(library, "p11_kit_message", kit.message) &&
                           FindFunction(library, "p11_kit_be_quiet", kit.beQuiet);
        if (!whole) return nullptr;
        kit.beQuiet();  // its remarks go to our log, not to standard error
        return &kit;
    }();
    if (loaded == nullptr) TokenTrouble(SCARD_E_NO_SERVICE, "libp11-kit is not installed", {});
    return loaded;
}

std::string TakeText(char* text) {
    std::string copy = text == nullptr ? "" : text;
    std::free(text);
    return copy;
}

// Holds the modules between operations. Never destroyed: at the end of the process the drivers' own globals may be gone
// before ours.
struct Kept {
    std::mutex lock;
    std::shared_ptr<const Pkcs11Modules> modules;
};
Kept& TheKept() {
    static Kept& kept = *new Kept;
    return kept;
}

}  // namespace

Pkcs11Modules::Pkcs11Modules() : process_(getpid()) {}

Pkcs11Modules::~Pkcs11Modules() {
    const P11Kit* kit = LoadP11Kit();
    if (kit == nullptr || !IsOurs()) return;
    if (configured_ != nullptr) kit->finalizeAndRelease(configured_);
    if (single_ != nullptr) {
        kit->finalize(single_);
        kit->release(single_);
    }
}

bool Pkcs11Modules::IsOurs() const {
    return process_ == getpid();
}

void Pkcs11Modules::Describe(CK_FUNCTION_LIST* functions) {
    const P11Kit* kit = LoadP11Kit();
    modules_.push_back({functions, TakeText(kit->name(functions)), TakeText(kit->fileName(functions))});
}

std::shared_ptr<const Pkcs11Modules> Pkcs11Modules::Load() {
    const P11Kit* kit = LoadP11Kit();
    if (kit == nullptr) return nullptr;
    Kept& kept = TheKept();
    const std::lock_guard lock(kept.lock);
    if (kept.modules && kept.modules->IsOurs()) return kept.modules;

    std::shared_ptr<Pkcs11Modules> loaded(new Pkcs11Modules);
    loaded->configured_ = kit->loadAndInitialize(0);
    if (loaded->configured_ == nullptr) {
        const char* message = kit->message();
        TokenTrouble(SCARD_E_NO_SERVICE, message == nullptr ? "p11-kit cannot start its modules" : message, {});
        return nullptr;
    }
    for (CK_FUNCTION_LIST** module = loaded->configured_; *module != nullptr; ++module)
        if (TakeText(kit->option(*module, "trust-policy")) != "yes") loaded->Describe(*module);
    kept.modules = loaded;
    return loaded;
}

std::shared_ptr<const Pkcs11Modules> Pkcs11Modules::LoadFile(const std::filesystem::path& file) {
    const P11Kit* kit = LoadP11Kit();
    if (kit == nullptr) return nullptr;
    std::shared_ptr<Pkcs11Modules> loaded(new Pkcs11Modules);
    CK_FUNCTION_LIST* module = kit->loadFile(file.c_str(), 0);
    if (module == nullptr) {
        TokenTrouble(SCARD_E_NO_SERVICE, file.string() + " cannot be loaded as a PKCS#11 module", {});
        return nullptr;
    }
    if (const CK_RV result = kit->initialize(module); result != CKR_OK) {
        kit->release(module);
        TokenFault(result, "C_Initialize", {});
        return nullptr;
    }
    loaded->single_ = module;
    loaded->Describe(module);
    return loaded;
}

void Pkcs11Modules::Forget() {
    Kept& kept = TheKept();
    std::shared_ptr<const Pkcs11Modules> last;  // ends outside the lock
    const std::lock_guard lock(kept.lock);
    last.swap(kept.modules);
}

}  // namespace posix

void ReleaseTokens() {
    posix::Pkcs11Modules::Forget();
}

}  // namespace platform

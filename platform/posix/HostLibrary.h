#pragma once
// Libraries of the host that are loaded at their first use, so that who does not need one does not pay for its start.

#include <dlfcn.h>

#include <string>

#include "platform/posix/Native.h"

namespace platform::posix {

// Stays loaded until the process ends: threads of the library's own may run in it. Null, with the reason in the log, if
// the host has none.
inline void* LoadHostLibrary(const char* file, int flags) {
    void* const library = dlopen(file, flags | RTLD_LOCAL);
    if (library == nullptr) {
        const char* const reason = dlerror();
        LogHost(std::string(file) + " cannot be loaded: " + (reason == nullptr ? "" : reason));
    }
    return library;
}

// Whether the library has the function.
template <typename Function>
bool FindFunction(void* library, const char* name, Function& function) {
    function = reinterpret_cast<Function>(dlsym(library, name));
    return function != nullptr;
}

}  // namespace platform::posix

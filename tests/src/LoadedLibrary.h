#pragma once
// The library as an application loads it, with the person of a test behind its interface.

#include <dlfcn.h>

#include <memory>
#include <stdexcept>
#include <string>

#include "src/Norvik.h"
#include "tests/support/ScriptedInterface.h"

namespace tests {

class LoadedLibrary {
  public:
    explicit LoadedLibrary(Script& script) : library_(dlopen(NORVIK_BINARY_DIR "/lib/libNorvik.so", RTLD_NOW)) {
        if (library_ == nullptr) throw std::runtime_error(dlerror());
        CNorvikApp::Start(std::make_unique<ScriptedInterface>(script));
    }
    ~LoadedLibrary() {
        CNorvikApp::Stop();
        dlclose(library_);
    }
    LoadedLibrary(const LoadedLibrary&) = delete;
    LoadedLibrary& operator=(const LoadedLibrary&) = delete;

    template <typename Function>
    [[nodiscard]] Function* Export(const char* name) const {
        void* const address = dlsym(library_, name);
        if (address == nullptr) throw std::runtime_error(dlerror());
        return reinterpret_cast<Function*>(address);
    }

  private:
    void* library_;
};

}  // namespace tests

// NORVIK_EXPORT_OF(library, NorvikInit)(nullptr)
#define NORVIK_EXPORT_OF(library, name) (library).Export<decltype(name)>(#name)

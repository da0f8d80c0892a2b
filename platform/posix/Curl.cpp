#include "platform/posix/Curl.h"

#include <dlfcn.h>

#include <string>

#include "platform/posix/Native.h"

namespace platform::posix {
namespace {

template <typename Function>
bool Find(void* library, const char* name, Function& function) {
    function = reinterpret_cast<Function>(dlsym(library, name));
    return function != nullptr;
}

const CurlLibrary* Load() {
    void* const library = dlopen("libcurl.so.4", RTLD_NOW | RTLD_LOCAL);
    if (library == nullptr) {
        const char* const reason = dlerror();
        LogHost(std::string("libcurl cannot be loaded: ") + (reason == nullptr ? "" : reason));
        return nullptr;
    }
    static CurlLibrary curl;
    const bool complete =
        Find(library, "curl_global_init", curl.globalInit) && Find(library, "curl_easy_init", curl.init) &&
        Find(library, "curl_easy_cleanup", curl.cleanup) && Find(library, "curl_easy_setopt", curl.setopt) &&
        Find(library, "curl_easy_perform", curl.perform) && Find(library, "curl_easy_getinfo", curl.getinfo) &&
        Find(library, "curl_easy_strerror", curl.strerror) && Find(library, "curl_slist_append", curl.append) &&
        Find(library, "curl_slist_free_all", curl.freeAll);
    return complete && curl.globalInit(CURL_GLOBAL_DEFAULT) == CURLE_OK ? &curl : nullptr;
}

}  // namespace

const CurlLibrary* CurlLibrary::Get() {
    static const CurlLibrary* const library = Load();
    return library;
}

}  // namespace platform::posix

#include "platform/posix/Curl.h"

#include "platform/posix/HostLibrary.h"

namespace platform::posix {
namespace {

const CurlLibrary* Load() {
    void* const library = LoadHostLibrary("libcurl.so.4", RTLD_NOW);
    if (library == nullptr) return nullptr;
    static CurlLibrary curl;
    const bool complete = FindFunction(library, "curl_global_init", curl.globalInit) &&
                          FindFunction(library, "curl_easy_init", curl.init) &&
                          FindFunction(library, "curl_easy_cleanup", curl.cleanup) &&
                          FindFunction(library, "curl_easy_setopt", curl.setopt) &&
                          FindFunction(library, "curl_easy_perform", curl.perform) &&
                          FindFunction(library, "curl_easy_getinfo", curl.getinfo) &&
                          FindFunction(library, "curl_easy_strerror", curl.strerror) &&
                          FindFunction(library, "curl_slist_append", curl.append) &&
                          FindFunction(library, "curl_slist_free_all", curl.freeAll);
    return complete && curl.globalInit(CURL_GLOBAL_DEFAULT) == CURLE_OK ? &curl : nullptr;
}

}  // namespace

const CurlLibrary* CurlLibrary::Get() {
    static const CurlLibrary* const library = Load();
    return library;
}

}  // namespace platform::posix

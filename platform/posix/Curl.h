#pragma once
// The functions of libcurl, found when the first request is made.

#include <curl/curl.h>

namespace platform::posix {

struct CurlLibrary {
    decltype(&curl_global_init) globalInit;
    decltype(&curl_easy_init) init;
    decltype(&curl_easy_cleanup) cleanup;
    decltype(&curl_easy_setopt) setopt;
    decltype(&curl_easy_perform) perform;
    decltype(&curl_easy_getinfo) getinfo;
    decltype(&curl_easy_strerror) strerror;
    decltype(&curl_slist_append) append;
    decltype(&curl_slist_free_all) freeAll;

    // Null if the host has no such library. It stays loaded: threads of its own may still run in it.
    static const CurlLibrary* Get();
};

}  // namespace platform::posix

#pragma once
// A file fetched as the network library does by itself: redirects followed, whatever status the server gives, no time
// limits but the library's own. For exchanges with limits see Http.h.

#include <string>

#include "platform/Types.h"

namespace platform {

struct DownloadResult {
    enum class State {
        done,
        failed,   // the transfer ended with an error
        noHandle  // the network library is missing or cannot start a transfer
    };
    State state = State::noHandle;
    Bytes body;          // when done
    std::string reason;  // when failed, in the library's words
};

// Fails while the network is switched off (Http.h). Only http and https, also after a redirect; a location that leads
// elsewhere fails. Bodies over 1 GiB fail.
DownloadResult Download(const std::string& url);

}  // namespace platform

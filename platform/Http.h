#pragma once
// One HTTP exchange. The network library is loaded at the first call, so that who works offline does not pay for it.

#include <chrono>
#include <optional>
#include <string>

#include "platform/Error.h"
#include "platform/Secret.h"
#include "platform/Types.h"

namespace platform {

struct HttpRequest {
    std::string url;            // with its scheme; http or https only, also after redirects
    std::optional<Bytes> body;  // present: POST, and again after a redirect that does not demand GET (303)
    std::string contentType;    // of the body
    std::string accept;
    struct Credentials {
        std::string user;
        Secret password;
    };
    std::optional<Credentials> basic;  // sent at once, never to another host after a redirect
    std::chrono::seconds connectTimeout{15};
    std::chrono::seconds totalTimeout{60};
    std::uint64_t sizeLimit = 64u << 20;  // of the answer's body
    bool followRedirects = true;          // at most five
};

struct HttpResponse {
    long status = 0;
    std::string contentType;
    Bytes body;
};

// Why an exchange did not take place, in words for the log (never with credentials in them).
struct HttpFailure {
    std::string reason;
    bool timedOut = false;
};

// Process-wide, true at the start: whether HttpSend and Download may reach for the network. Without it each of them
// fails at once (ERROR_INTERNET_DISCONNECTED), and a chain knows what lies on this machine only.
void AllowNetwork(bool allow);
bool IsNetworkAllowed();

// An answer of any status is an answer; one over the size limit is none (ERROR_MORE_DATA). The proxy is that of the
// environment, servers of https must show a certificate that the host trusts. Empty when there was none: last error
// set, the reason in `failure` if given.
std::optional<HttpResponse> HttpSend(const HttpRequest& request, HttpFailure* failure = nullptr);

}  // namespace platform

#include "toolkit/ClsHttp.h"

#include <algorithm>

#include "platform/Text.h"

namespace toolkit {

namespace {

// What is asked for here are answers of a few kilobytes.
constexpr std::uint64_t kAnswerLimit = 4u << 20;

}  // namespace

void ClsHttp::SetBasicAuth(bool on) {
    const auto lock = Lock();
    basicAuth_ = on;
}

void ClsHttp::SetLogin(std::string_view login) {
    const auto lock = Lock();
    login_ = login;
}

void ClsHttp::SetPassword(platform::Secret password) {
    const auto lock = Lock();
    password_ = std::move(password);
}

void ClsHttp::SetTimeout(std::chrono::seconds timeout) {
    const auto lock = Lock();
    timeout_ = std::max(timeout, std::chrono::seconds(1));
}

std::optional<platform::HttpResponse> ClsHttp::Post(std::string_view url, platform::ByteView body,
                                                    std::string_view contentType, std::string_view accept,
                                                    OperationLog& log) const {
    platform::HttpRequest request;
    request.url = url;
    request.body = platform::CopyOf(body);
    request.contentType = contentType;
    request.accept = accept;
    request.sizeLimit = kAnswerLimit;
    {
        const auto lock = Lock();
        request.totalTimeout = timeout_;
        request.connectTimeout = std::min(request.connectTimeout, timeout_);
        if (basicAuth_) request.basic = {login_, password_.Copy()};
    }
    platform::HttpFailure failure;
    auto response = platform::HttpSend(request, &failure);
    if (!response) {
        log.Line(failure.timedOut ? "The HTTP server did not answer in time." : "The HTTP exchange failed.");
        log.Value("reason", failure.reason);
        return std::nullopt;
    }
    log.Detail("httpStatus", std::to_string(response->status));
    // A header is the server's text: what is not UTF-8 in it must not reach the log.
    log.Detail("httpContentType", platform::ToUtf8(platform::ToWide(response->contentType)));
    return response;
}

}  // namespace toolkit

#include "platform/Download.h"

#include <memory>
#include <new>

#include "platform/Http.h"
#include "platform/posix/Curl.h"

namespace platform {
namespace {

constexpr std::size_t kMostBytes = std::size_t{1} << 30;
// Later releases of the library stop there by themselves; earlier ones would follow a circle without end.
constexpr long kMostRedirects = 30;

// A short count makes the library break the transfer off.
std::size_t Append(const char* data, std::size_t size, std::size_t count, void* context) {
    auto& body = *static_cast<Bytes*>(context);
    const std::size_t length = size * count;
    if (length > kMostBytes - body.size()) return 0;
    try {
        body.insert(body.end(), data, data + length);
    } catch (const std::bad_alloc&) {
        return 0;
    }
    return length;
}

}  // namespace

DownloadResult Download(const std::string& url) {
    if (!IsNetworkAllowed()) return {DownloadResult::State::failed, {}, "The network is switched off"};
    const posix::CurlLibrary* const curl = posix::CurlLibrary::Get();
    if (curl == nullptr) return {};
    const std::unique_ptr<CURL, decltype(curl->cleanup)> handle(curl->init(), curl->cleanup);
    if (!handle) return {};

    DownloadResult download{DownloadResult::State::failed, {}, {}};
    CURLcode result = CURLE_OK;
    const auto set = [&](CURLoption option, auto value) {
        if (result == CURLE_OK) result = curl->setopt(handle.get(), option, value);
    };
    set(CURLOPT_URL, url.c_str());
    set(CURLOPT_NOPROGRESS, 1L);
    set(CURLOPT_FOLLOWLOCATION, 1L);
    set(CURLOPT_MAXREDIRS, kMostRedirects);
    set(CURLOPT_PROTOCOLS_STR, "http,https");
    set(CURLOPT_REDIR_PROTOCOLS_STR, "http,https");
    set(CURLOPT_WRITEDATA, static_cast<void*>(&download.body));
    set(CURLOPT_WRITEFUNCTION, &Append);
    if (result == CURLE_OK) result = curl->perform(handle.get());
    if (result != CURLE_OK) {
        download.body.clear();
        download.reason = curl->strerror(result);
        return download;
    }
    download.state = DownloadResult::State::done;
    return download;
}

}  // namespace platform

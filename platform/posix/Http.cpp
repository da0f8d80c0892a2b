#include "platform/Http.h"

#include <strings.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <new>

#include "platform/posix/Curl.h"

namespace platform {
namespace {

using posix::CurlLibrary;

constexpr long kMostRedirects = 5;

std::atomic<bool> networkIsAllowed = true;

struct Receiver {
    Bytes body;
    std::uint64_t limit;
    bool tooLong = false;
    bool noMemory = false;
};

// A short count makes the library break the transfer off.
std::size_t Receive(const char* data, std::size_t size, std::size_t count, void* context) {
    auto& receiver = *static_cast<Receiver*>(context);
    const std::size_t length = size * count;
    receiver.tooLong = length > receiver.limit - receiver.body.size();
    if (receiver.tooLong) return 0;
    try {
        receiver.body.insert(receiver.body.end(), data, data + length);
    } catch (const std::bad_alloc&) {
        receiver.noMemory = true;
        return 0;
    }
    return length;
}

// An exchange in the making: the library's handle and header list.
class Transfer {
  public:
    explicit Transfer(const CurlLibrary& curl) : curl_(curl), handle_(curl.init()) {}
    ~Transfer() {
        curl_.freeAll(headers_);
        if (handle_ != nullptr) curl_.cleanup(handle_);
    }
    Transfer(const Transfer&) = delete;
    Transfer& operator=(const Transfer&) = delete;
    explicit operator bool() const { return handle_ != nullptr; }

    // An option that the library does not take is remembered: without its limits no request goes out.
    template <typename Value>
    void Set(CURLoption option, Value value) {
        if (result_ == CURLE_OK) result_ = curl_.setopt(handle_, option, value);
    }
    void AddHeader(const std::string& line) {
        curl_slist* const longer = curl_.append(headers_, line.c_str());
        if (longer == nullptr) {
            result_ = CURLE_OUT_OF_MEMORY;
        } else {
            headers_ = longer;
        }
    }
    CURLcode Perform() {
        Set(CURLOPT_HTTPHEADER, headers_);
        return result_ == CURLE_OK ? curl_.perform(handle_) : result_;
    }
    template <typename Value>
    Value Answer(CURLINFO info) {
        Value value{};
        curl_.getinfo(handle_, info, &value);
        return value;
    }

  private:
    const CurlLibrary& curl_;
    CURL* handle_;
    curl_slist* headers_ = nullptr;
    CURLcode result_ = CURLE_OK;
};

bool HasScheme(const std::string& url, const char* scheme) {
    return strncasecmp(url.c_str(), scheme, std::char_traits<char>::length(scheme)) == 0;
}

bool IsUsable(const std::string& url) {
    const bool clean = std::ranges::none_of(url, [](char c) { return static_cast<unsigned char>(c) <= ' '; });
    return clean && (HasScheme(url, "http://") || HasScheme(url, "https://"));
}

long Milliseconds(std::chrono::seconds time) {
    // Zero would stand for no limit at all.
    const auto seconds = std::clamp<std::chrono::seconds::rep>(time.count(), 1, 24 * 3600);
    return static_cast<long>(seconds * 1000);
}

void SetLimits(Transfer& transfer, const HttpRequest& request) {
    transfer.Set(CURLOPT_NOSIGNAL, 1L);
    transfer.Set(CURLOPT_PROTOCOLS_STR, "http,https");
    transfer.Set(CURLOPT_REDIR_PROTOCOLS_STR, "http,https");
    transfer.Set(CURLOPT_FOLLOWLOCATION, request.followRedirects ? 1L : 0L);
    transfer.Set(CURLOPT_MAXREDIRS, kMostRedirects);
    transfer.Set(CURLOPT_POSTREDIR, static_cast<long>(CURL_REDIR_POST_301 | CURL_REDIR_POST_302));
    transfer.Set(CURLOPT_CONNECTTIMEOUT_MS, Milliseconds(request.connectTimeout));
    transfer.Set(CURLOPT_TIMEOUT_MS, Milliseconds(request.totalTimeout));
}

// The passphrase must outlive the transfer's set-up only: the library copies it.
void SetCredentials(Transfer& transfer, const HttpRequest::Credentials& credentials) {
    const auto text = credentials.password.View();
    Bytes terminated(text.size() + 1);
    std::ranges::copy(text, terminated.begin());
    const Secret password(std::move(terminated));
    transfer.Set(CURLOPT_HTTPAUTH, static_cast<long>(CURLAUTH_BASIC));
    transfer.Set(CURLOPT_USERNAME, credentials.user.c_str());
    transfer.Set(CURLOPT_PASSWORD, password.Text().data());
}

void SetContent(Transfer& transfer, const HttpRequest& request) {
    transfer.Set(CURLOPT_URL, request.url.c_str());
    transfer.Set(CURLOPT_USERAGENT, "Norvik");
    if (!request.accept.empty()) transfer.AddHeader("Accept: " + request.accept);
    if (!request.body) return;
    transfer.Set(CURLOPT_POST, 1L);
    transfer.Set(CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(request.body->size()));
    transfer.Set(CURLOPT_POSTFIELDS, request.body->empty() ? "" : reinterpret_cast<const char*>(request.body->data()));
    transfer.AddHeader("Content-Type: " + request.contentType);
    transfer.AddHeader("Expect:");  // no waiting for a leave to send
}

ErrorCode CodeOf(CURLcode result, long status, const Receiver& receiver) {
    if (receiver.tooLong) return ERROR_MORE_DATA;
    if (receiver.noMemory) return ERROR_NOT_ENOUGH_MEMORY;
    switch (result) {
        case CURLE_OPERATION_TIMEDOUT:
            return ERROR_INTERNET_TIMEOUT;
        case CURLE_URL_MALFORMAT:
            return ERROR_INTERNET_INVALID_URL;
        case CURLE_COULDNT_RESOLVE_HOST:
        case CURLE_COULDNT_RESOLVE_PROXY:
            return ERROR_INTERNET_NAME_NOT_RESOLVED;
        case CURLE_COULDNT_CONNECT:
            return ERROR_INTERNET_CANNOT_CONNECT;
        case CURLE_UNSUPPORTED_PROTOCOL:  // where a redirect leads, or an answer that is not HTTP
            return status / 100 == 3 ? ERROR_HTTP_REDIRECT_FAILED : ERROR_INTERNET_CONNECTION_ABORTED;
        case CURLE_TOO_MANY_REDIRECTS:
            return ERROR_HTTP_REDIRECT_FAILED;
        case CURLE_SSL_CONNECT_ERROR:
        case CURLE_PEER_FAILED_VERIFICATION:
        case CURLE_SSL_CACERT_BADFILE:
            return ERROR_INTERNET_SECURE_FAILURE;
        case CURLE_OUT_OF_MEMORY:
            return ERROR_NOT_ENOUGH_MEMORY;
        case CURLE_UNKNOWN_OPTION:
        case CURLE_NOT_BUILT_IN:
            return ERROR_NOT_SUPPORTED;
        default:
            return ERROR_INTERNET_CONNECTION_ABORTED;
    }
}

std::nullopt_t Failed(ErrorCode code, std::string reason, HttpFailure* failure) {
    SetLastError(code);
    if (failure != nullptr) *failure = {std::move(reason), code == ERROR_INTERNET_TIMEOUT};
    return std::nullopt;
}

}  // namespace

void AllowNetwork(bool allow) {
    networkIsAllowed = allow;
}

bool IsNetworkAllowed() {
    return networkIsAllowed;
}

std::optional<HttpResponse> HttpSend(const HttpRequest& request, HttpFailure* failure) {
    if (!IsNetworkAllowed()) return Failed(ERROR_INTERNET_DISCONNECTED, "the network is switched off", failure);
    if (!IsUsable(request.url))
        return Failed(ERROR_INTERNET_INVALID_URL, "the address is not one of http or https", failure);
    const CurlLibrary* const curl = CurlLibrary::Get();
    if (curl == nullptr) return Failed(ERROR_NOT_SUPPORTED, "the network library cannot be loaded", failure);
    Transfer transfer(*curl);
    if (!transfer) return Failed(ERROR_NOT_ENOUGH_MEMORY, "out of memory", failure);

    Receiver receiver{{}, request.sizeLimit};
    std::array<char, CURL_ERROR_SIZE> detail{};
    transfer.Set(CURLOPT_ERRORBUFFER, detail.data());
    transfer.Set(CURLOPT_WRITEFUNCTION, &Receive);
    transfer.Set(CURLOPT_WRITEDATA, static_cast<void*>(&receiver));
    SetLimits(transfer, request);
    SetContent(transfer, request);
    if (request.basic) SetCredentials(transfer, *request.basic);

    const CURLcode result = transfer.Perform();
    if (result != CURLE_OK) {
        std::string reason = receiver.tooLong    ? "the answer is longer than allowed"
                             : detail[0] != '\0' ? detail.data()
                                                 : curl->strerror(result);
        const long status = transfer.Answer<long>(CURLINFO_RESPONSE_CODE);
        return Failed(CodeOf(result, status, receiver), std::move(reason), failure);
    }
    HttpResponse response;
    response.status = transfer.Answer<long>(CURLINFO_RESPONSE_CODE);
    if (const char* type = transfer.Answer<char*>(CURLINFO_CONTENT_TYPE); type != nullptr) response.contentType = type;
    response.body = std::move(receiver.body);
    return response;
}

}  // namespace platform

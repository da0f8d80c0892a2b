#include "platform/posix/Exchanges.h"

#include <algorithm>
#include <map>
#include <mutex>

#include "platform/posix/Native.h"

namespace platform::posix {
namespace {

using Clock = std::chrono::steady_clock;
using namespace std::chrono_literals;

constexpr auto kSlow = 5s;
constexpr auto kRest = 120s;
constexpr std::size_t kMaxResting = 256;
constexpr long kHttpOk = 200;

// Addresses that let us wait for nothing. They are left alone for a while, in the whole process: a folder of a hundred
// signatures must not wait a hundred times for one dead server.
class RestingAddresses {
  public:
    bool Contains(const std::string& url) {
        const std::scoped_lock lock(lock_);
        const auto found = until_.find(url);
        return found != until_.end() && Clock::now() < found->second;
    }
    void Add(const std::string& url) {
        const std::scoped_lock lock(lock_);
        if (until_.size() >= kMaxResting) until_.clear();
        until_[url] = Clock::now() + kRest;
    }

  private:
    std::mutex lock_;
    std::map<std::string, Clock::time_point> until_;
};

RestingAddresses& Resting() {
    static RestingAddresses addresses;
    return addresses;
}

}  // namespace

std::optional<Bytes> Exchanges::Get(const std::string& url, const char* accept, std::uint64_t sizeLimit) {
    if (!asked_.insert(url).second) return std::nullopt;
    HttpRequest request;
    request.url = url;
    request.accept = accept;
    request.sizeLimit = sizeLimit;
    return Send(std::move(request));
}

std::optional<Bytes> Exchanges::Post(const std::string& url, const char* contentType, Bytes body, const char* accept,
                                     std::uint64_t sizeLimit) {
    HttpRequest request;
    request.url = url;
    request.contentType = contentType;
    request.body = std::move(body);
    request.accept = accept;
    request.sizeLimit = sizeLimit;
    return Send(std::move(request));
}

std::optional<Bytes> Exchanges::Send(HttpRequest request) {
    if (!Allowed() || made_ >= limits_.mostExchanges || timeLeft_ < 1s || Resting().Contains(request.url))
        return std::nullopt;
    ++made_;
    const auto left = std::chrono::duration_cast<std::chrono::seconds>(timeLeft_);
    request.connectTimeout = request.totalTimeout = std::min(limits_.eachExchange, left);

    const auto start = Clock::now();
    HttpFailure failure;
    auto response = HttpSend(request, &failure);
    const auto took = std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - start);
    timeLeft_ -= took;
    if (response && response->status == kHttpOk) return std::move(response->body);

    if (took >= kSlow) Resting().Add(request.url);
    LogHost("No answer from " + request.url + ": " +
            (response ? "status " + std::to_string(response->status) : failure.reason));
    return std::nullopt;
}

}  // namespace platform::posix

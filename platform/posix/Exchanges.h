#pragma once
// The exchanges over the network that one question about a certificate may cause. Certificates name the addresses, and
// whoever sends a message chooses the certificates: number, time and size are bounded, and nothing is asked twice.

#include <chrono>
#include <set>
#include <string>

#include "platform/Chains.h"
#include "platform/Http.h"

namespace platform::posix {

class Exchanges {
  public:
    explicit Exchanges(const ChainNetwork& limits) : limits_(limits), timeLeft_(limits.allExchanges) {}

    // Whether anything may be asked at all.
    [[nodiscard]] bool Allowed() const { return limits_.allowed && IsNetworkAllowed(); }

    // The body of an answer with status 200. Empty if there was none, if the bounds are used up, and if the same was
    // asked before: whoever asks keeps what was answered.
    std::optional<Bytes> Get(const std::string& url, const char* accept, std::uint64_t sizeLimit);
    std::optional<Bytes> Post(const std::string& url, const char* contentType, Bytes body, const char* accept,
                              std::uint64_t sizeLimit);

  private:
    std::optional<Bytes> Send(HttpRequest request);

    ChainNetwork limits_;
    std::chrono::milliseconds timeLeft_;
    unsigned made_ = 0;
    std::set<std::string> asked_;
};

}  // namespace platform::posix

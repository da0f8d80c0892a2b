#include "platform/HostLog.h"

#include <atomic>

#include "platform/posix/Native.h"

namespace platform {
namespace {
std::atomic<void (*)(std::string_view)> hostLog = nullptr;
}

void SetHostLog(void (*handler)(std::string_view utf8)) {
    hostLog.store(handler);
}

void posix::LogHost(std::string_view text) {
    if (auto* handler = hostLog.load()) handler(text);
}

}  // namespace platform

#include "platform/posix/FileState.h"

#include <ctime>

namespace platform::posix {
namespace {

std::int64_t Nanoseconds(const timespec& time) {
    return std::int64_t{time.tv_sec} * 1'000'000'000 + time.tv_nsec;
}

}  // namespace

std::optional<FileState> FileState::Of(const char* path) {
    struct stat status {};
    if (stat(path, &status) != 0) return std::nullopt;
    return FileState{
        status.st_dev, status.st_ino, status.st_size, Nanoseconds(status.st_mtim), Nanoseconds(status.st_ctim),
        status.st_mode};
}

bool FileState::SettledAt(std::int64_t moment) const {
    constexpr std::int64_t kSecond = 1'000'000'000;
    // File systems that keep whole or even seconds only show it by having no fraction.
    const std::int64_t tick = changed % kSecond == 0 ? 3 * kSecond : kSecond / 10;
    return changed + tick < moment && modified + tick < moment;
}

std::int64_t WallClock() {
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    return Nanoseconds(now);
}

}  // namespace platform::posix

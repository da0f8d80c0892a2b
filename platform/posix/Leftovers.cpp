#include "platform/Leftovers.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <climits>
#include <csignal>

namespace platform {
namespace {

// Fixed memory: a signal may come while the heap is being changed. More at once are not remembered.
struct Slot {
    std::atomic<bool> taken = false, filled = false;
    std::array<char, PATH_MAX> path{};
};
std::array<Slot, 8> slots;

void EndTidily(int signal) {
    RemoveLeftovers();
    std::signal(signal, SIG_DFL);
    std::raise(signal);
}

}  // namespace

void RemoveLeftovers() noexcept {
    for (const auto& slot : slots) {
        if (slot.filled && unlink(slot.path.data()) != 0) rmdir(slot.path.data());
    }
}

void RemoveLeftoversOnEndSignals() {
    for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
        // Who started the program may have it ignore one, as nohup does.
        if (std::signal(signal, EndTidily) == SIG_IGN) std::signal(signal, SIG_IGN);
    }
}

Leftover::Leftover(const std::filesystem::path& path) {
    std::error_code error;
    const auto whole = std::filesystem::absolute(path, error).native();
    if (whole.empty() || whole.size() >= PATH_MAX) return;
    for (std::size_t i = 0; i < slots.size() && slot_ < 0; ++i) {
        if (!slots[i].taken.exchange(true)) slot_ = static_cast<int>(i);
    }
    if (slot_ < 0) return;
    auto& slot = slots[static_cast<std::size_t>(slot_)];
    *std::ranges::copy(whole, slot.path.begin()).out = '\0';
    slot.filled = true;
}

Leftover& Leftover::operator=(Leftover&& other) noexcept {
    std::swap(slot_, other.slot_);
    return *this;
}

Leftover::~Leftover() {
    if (slot_ < 0) return;
    auto& slot = slots[static_cast<std::size_t>(slot_)];
    slot.filled = false;
    slot.taken = false;
}

}  // namespace platform

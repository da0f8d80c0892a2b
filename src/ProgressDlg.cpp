#include "src/ProgressDlg.h"

#include <utility>

namespace {

using namespace std::chrono_literals;
constexpr auto kWait = 300ms;
constexpr auto kPause = 50ms;  // between two pictures of the state: drawing must not cost more than the work

}  // namespace

DelayedProgress::DelayedProgress(ui::UserInterface& interface, std::u16string file)
    : interface_(interface), file_(std::move(file)), next_(Clock::now() + kWait) {}

void DelayedProgress::Update(std::uint64_t done, std::uint64_t total) {
    const auto now = Clock::now();
    if (now < next_) return;
    next_ = now + kPause;
    if (!std::exchange(asked_, true)) shown_ = interface_.ShowProgress(file_);
    if (shown_) shown_->Update(done, total);
}

#pragma once

#include <chrono>
#include <memory>
#include <string>

#include "src/ui/UserInterface.h"

// The window that a long operation shows: not before it has become a wait, and gone with the object.
class DelayedProgress {
  public:
    DelayedProgress(ui::UserInterface& interface, std::u16string file);
    // Bytes; a total of 0: not known.
    void Update(std::uint64_t done, std::uint64_t total);

  private:
    using Clock = std::chrono::steady_clock;
    ui::UserInterface& interface_;
    std::u16string file_;
    Clock::time_point next_;
    std::unique_ptr<ui::Progress> shown_;
    bool asked_ = false;
};

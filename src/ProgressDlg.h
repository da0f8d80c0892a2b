#pragma once

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <string>

#include "platform/Types.h"
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

// What kind of message the bytes are: CMSG_DATA to CMSG_ENCRYPTED; 0, with the reason in the log, for what is none.
// Flags: 0, or CMSG_DETACHED_FLAG for a signature whose data come along.
std::uint32_t GetMessageType(platform::ByteView message, std::uint32_t flags, platform::ByteView detachedData = {});
// The same of a file of any size, whose content is stepped over. A file that cannot be read is shown to the person.
std::uint32_t GetFileMessageType(const std::filesystem::path& file, ui::UserInterface& interface);

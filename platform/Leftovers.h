#pragma once
// What a program that is told to end must not leave behind: half-written files that have a name, empty folders.

#include <filesystem>
#include <utility>

namespace platform {

// Remembers a path while it lives. Costs nothing but the memory where RemoveLeftoversOnEndSignals was not called.
class Leftover {
  public:
    Leftover() = default;
    explicit Leftover(const std::filesystem::path& path);
    Leftover(Leftover&& other) noexcept : slot_(std::exchange(other.slot_, -1)) {}
    Leftover& operator=(Leftover&& other) noexcept;
    ~Leftover();

  private:
    int slot_ = -1;
};

// For a program, never for a library in somebody else's process: from now on SIGINT, SIGTERM and SIGHUP remove what is
// remembered before they end the process as ever.
void RemoveLeftoversOnEndSignals();
// For other handlers of such signals. Files, and folders that are empty.
void RemoveLeftovers() noexcept;

}  // namespace platform

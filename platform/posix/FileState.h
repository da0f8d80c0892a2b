#pragma once
// How a change of a file is noticed.

#include <sys/stat.h>

#include <cstdint>
#include <filesystem>
#include <optional>

namespace platform::posix {

// What tells one state of a file or folder from the next.
struct FileState {
    dev_t device = 0;
    ino_t inode = 0;
    off_t size = 0;
    std::int64_t modified = 0, changed = 0;  // ns since 1970
    mode_t mode = 0;
    friend bool operator==(const FileState&, const FileState&) = default;

    // Empty if there is no such file, with errno telling why.
    static std::optional<FileState> Of(const std::filesystem::path& path) { return Of(path.c_str()); }
    static std::optional<FileState> Of(const char* path);
    [[nodiscard]] bool IsRegular() const { return S_ISREG(mode); }
    // Whether a later change must show in these values. A file system's clock ticks coarsely, so what was changed just
    // before `moment` (ns since 1970) may change again within the same tick and look the same.
    [[nodiscard]] bool SettledAt(std::int64_t moment) const;
};

// The system's clock, ns since 1970.
std::int64_t WallClock();

}  // namespace platform::posix

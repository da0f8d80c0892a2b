#pragma once
// Files read in pieces and written whole: a result stands under its final name only when it is complete.

#include <cstdint>
#include <filesystem>
#include <optional>

#include "platform/Error.h"
#include "platform/Leftovers.h"
#include "platform/Types.h"

namespace platform {

// A regular file open for reading. Folders, sockets and the like are refused with ERROR_DIRECTORY or
// ERROR_INVALID_DATA.
class InputFile {
  public:
    // Empty on failure, with the last error set (ERROR_FILE_NOT_FOUND, ERROR_ACCESS_DENIED, ...).
    static std::optional<InputFile> Open(const std::filesystem::path& path);
    InputFile(InputFile&& other) noexcept;
    InputFile& operator=(InputFile&& other) noexcept;
    ~InputFile();

    // The size when the file was opened.
    [[nodiscard]] std::uint64_t Size() const { return size_; }
    // Reads up to buffer.size() bytes at the offset; 0 at the end of the file; empty with the last error on failure.
    [[nodiscard]] std::optional<std::size_t> ReadAt(std::uint64_t offset, std::span<std::uint8_t> buffer) const;
    // Reads exactly buffer.size() bytes, or fails with ERROR_HANDLE_EOF (the file has shrunk) or ERROR_READ_FAULT.
    [[nodiscard]] bool ReadExactly(std::uint64_t offset, std::span<std::uint8_t> buffer) const;

  private:
    InputFile(int descriptor, std::uint64_t size) : descriptor_(descriptor), size_(size) {}
    int descriptor_ = -1;
    std::uint64_t size_ = 0;
};

// A file that is being made: it lies in the target's folder without its name (or under a hidden one) and takes the name
// at Commit, replacing what stood there. Without Commit nothing is left.
//
// Of a replaced file nothing is kept, neither mode nor owner. A link at the target is itself replaced and what it
// points at is left alone: whoever can plant a link in a shared folder must not choose which file is overwritten.
// Targets that are no files (folders, devices, also behind a link) and files that the user may not write are refused.
class OutputFile {
  public:
    // Mode is that of the finished file before umask. Empty on failure, with the last error set.
    static std::optional<OutputFile> Create(const std::filesystem::path& target, unsigned mode = 0666);
    OutputFile(OutputFile&& other) noexcept;
    OutputFile& operator=(OutputFile&& other) noexcept;
    ~OutputFile();

    [[nodiscard]] bool Write(ByteView bytes);  // appends
    // Appends several parts, with one call of the system where that does.
    [[nodiscard]] bool Write(std::span<const ByteView> parts);
    [[nodiscard]] bool WriteAt(std::uint64_t offset, ByteView bytes);
    // Gives the file its name. A file for its owner alone (no mode bits for others: keys) is on the disk before that;
    // others are left to the system, since waiting for the disk takes longer than making a signature.
    // ERROR_DISK_FULL, ERROR_ACCESS_DENIED, ... on failure, and nothing is left.
    [[nodiscard]] bool Commit();

  private:
    OutputFile(int descriptor, unsigned mode, bool replaces, std::filesystem::path target,
               std::filesystem::path temporary);
    void Discard() noexcept;
    int descriptor_ = -1;
    std::uint64_t position_ = 0;
    unsigned mode_ = 0;
    bool replaces_ = false;  // something stood at the target when the file was created
    std::filesystem::path target_;
    std::filesystem::path temporary_;  // empty while the file has no name at all
    Leftover leftover_;                // the temporary name
};

// The whole file; refuses more than `limit` bytes with ERROR_FILE_INVALID.
std::optional<Bytes> ReadWholeFile(const std::filesystem::path& path, std::uint64_t limit = std::uint64_t{1} << 40);
// Writes through OutputFile: the old content or the new one, never a half.
bool WriteWholeFile(const std::filesystem::path& path, ByteView bytes, unsigned mode = 0666);

}  // namespace platform

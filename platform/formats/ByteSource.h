#pragma once
// Random access to bytes that lie in memory or in a file, for readers that seek and never need the whole.

#include <optional>

#include "platform/Files.h"
#include "platform/Types.h"

namespace platform {

class ByteSource {
  public:
    virtual ~ByteSource() = default;
    [[nodiscard]] virtual std::uint64_t Size() const = 0;
    // Bytes from the offset on: at least `least` of them, or all that are left before the end, and at most `most`. The
    // view lasts until the next call. Empty optional if they cannot be read (last error set). `least` is at most 64
    // KiB.
    virtual std::optional<ByteView> View(std::uint64_t offset, std::size_t least, std::uint64_t most) = 0;
    // A copy of exactly so many bytes; empty optional also when the source is shorter.
    std::optional<Bytes> Copy(std::uint64_t offset, std::size_t size);
};

// Refers to bytes that the caller keeps.
class MemorySource final : public ByteSource {
  public:
    explicit MemorySource(ByteView bytes) : bytes_(bytes) {}
    [[nodiscard]] std::uint64_t Size() const override { return bytes_.size(); }
    std::optional<ByteView> View(std::uint64_t offset, std::size_t least, std::uint64_t most) override;

  private:
    ByteView bytes_;
};

// Reads a file through one window of at most 1 MiB.
class FileSource final : public ByteSource {
  public:
    explicit FileSource(InputFile file) : file_(std::move(file)) {}
    [[nodiscard]] std::uint64_t Size() const override { return file_.Size(); }
    std::optional<ByteView> View(std::uint64_t offset, std::size_t least, std::uint64_t most) override;

  private:
    InputFile file_;
    Bytes window_;
    std::uint64_t start_ = 0;  // of the window
    std::size_t filled_ = 0;
};

}  // namespace platform

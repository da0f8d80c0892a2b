#pragma once
// Bytes that come in pieces and are then read by seeking, however many they are.

#include <filesystem>
#include <memory>
#include <optional>

#include "platform/Files.h"
#include "platform/formats/ByteSource.h"

namespace platform {

// Keeps up to 16 MiB in memory; beyond that everything lies in a temporary file of the user's alone, which has no name
// any more once the bytes are complete.
class Spool {
  public:
    Spool() = default;
    ~Spool();
    Spool(const Spool&) = delete;
    Spool& operator=(const Spool&) = delete;
    // False with the last error set if the temporary file cannot be written.
    bool Append(ByteView bytes);
    // What was appended; the spool is empty afterwards. Null with the last error set.
    std::unique_ptr<ByteSource> Finish();

  private:
    bool MoveToFile();

    Bytes memory_;
    std::optional<OutputFile> file_;
    std::filesystem::path path_;
};

}  // namespace platform

#pragma once
// Opening signed files, as every operation on them begins. What fails throws std::runtime_error with the reason.

#include <filesystem>
#include <memory>
#include <stdexcept>

#include "crypt/CryptMessage.h"
#include "platform/formats/ByteSource.h"

namespace verification {

// The host's message service cannot do what was asked: its code, and the text of it.
class MessageFault : public std::runtime_error {
  public:
    explicit MessageFault(platform::ErrorCode code);
    [[nodiscard]] platform::ErrorCode Code() const { return code_; }

  private:
    platform::ErrorCode code_;
};
// With the object's last error.
[[noreturn]] void Raise(const tessaly::CommonClass& object);

// The file for reading in pieces; the reason is the system's.
std::shared_ptr<platform::ByteSource> OpenSource(const std::filesystem::path& file);

// Opens a message that must be a signed one. Flags: 0, or CMSG_DETACHED_FLAG; then the data are the next update.
void OpenSigned(tessaly::CryptMessageDecode& decoder, std::shared_ptr<platform::ByteSource> source,
                std::uint32_t flags = 0);

// Whether the signed file holds no content: then it stands elsewhere (or there is none at all).
bool IsDetachedSignature(const std::filesystem::path& file);

// The name's last extension in lower case, with its dot; empty if it has none.
std::u16string ExtensionOf(const std::filesystem::path& file);
// The path without its last extension: where the data of a detached signature lie.
std::filesystem::path WithoutExtension(const std::filesystem::path& file);

}  // namespace verification

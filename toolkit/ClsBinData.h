#pragma once
// A growing buffer of bytes. Passwords pass through it: the bytes are wiped when they go.

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

#include "platform/Types.h"
#include "toolkit/ClsBase.h"

namespace toolkit {

class ClsBinData : public ClsBase {
  public:
    ~ClsBinData() override;

    bool Append(platform::ByteView bytes);
    // Encoding "base64", in any letter case. After false the contents are as before.
    bool LoadEncoded(std::string_view text, std::string_view encoding);
    std::optional<std::string> GetEncoded(std::string_view encoding);
    bool LoadFile(const std::filesystem::path& path);
    // The contents read as text: "unicode" (UTF-16 little-endian), "utf-8" or "windows-1251", in any letter case. Empty
    // for another charset and for bytes that the charset does not know.
    std::optional<std::string> GetString(std::string_view charset);

    // The caller keeps other threads away meanwhile.
    [[nodiscard]] platform::ByteView Content() const { return bytes_; }
    void Replace(platform::Bytes bytes);

  private:
    platform::Bytes bytes_;
};

}  // namespace toolkit

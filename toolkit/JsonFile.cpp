#include "toolkit/JsonFile.h"

#include <filesystem>
#include <system_error>

#include "platform/Files.h"

namespace toolkit {

std::optional<std::string> JsonFileNamed(std::string_view text, char bracket, std::size_t limit) {
    constexpr std::uint64_t kMaxFile = std::uint64_t{1} << 31;
    if (text.empty() || text.size() >= limit || text.find(bracket) != std::string_view::npos) return std::nullopt;
    if (text.find('\0') != std::string_view::npos) return std::nullopt;
    const std::filesystem::path path(text);
    std::error_code ignored;
    if (!std::filesystem::is_regular_file(path, ignored)) return std::nullopt;
    const auto bytes = platform::ReadWholeFile(path, kMaxFile);
    if (!bytes) return std::nullopt;
    return std::string(platform::AsText(*bytes));
}

}  // namespace toolkit

#include "units/Registry.h"

#include "platform/Secret.h"

namespace {

platform::Bytes TerminatedUtf16(std::u16string_view text) {
    platform::Bytes bytes;
    bytes.reserve((text.size() + 1) * 2);
    const auto append = [&](char16_t unit) {
        bytes.push_back(static_cast<std::uint8_t>(unit & 0xFF));
        bytes.push_back(static_cast<std::uint8_t>(unit >> 8));
    };
    for (const char16_t unit : text)
        append(unit);
    append(u'\0');
    return bytes;
}

// Up to the terminator, which a value written by others may lack.
std::u16string TextOf(platform::ByteView bytes) {
    std::u16string text;
    text.reserve(bytes.size() / 2);
    for (std::size_t i = 0; i + 1 < bytes.size(); i += 2) {
        const auto unit = static_cast<char16_t>(bytes[i] | bytes[i + 1] << 8);
        if (unit == u'\0') break;
        text.push_back(unit);
    }
    return text;
}

}  // namespace

bool CRegistry::Open(std::u16string_view path, bool create) {
    const auto code =
        create ? platform::RegCreateKeyExW(root_, path, key_) : platform::RegOpenKeyExW(root_, path, key_);
    if (code != platform::ERROR_SUCCESS) Close();
    return code == platform::ERROR_SUCCESS;
}

std::u16string CRegistry::ReadString(std::u16string_view name, std::u16string_view fallback) const {
    platform::RegistryValue value;
    const auto code = platform::RegQueryValueExW(key_, name, value);
    if (code != platform::ERROR_SUCCESS || value.type != platform::REG_SZ) return std::u16string(fallback);
    return TextOf(value.data);
}

bool CRegistry::WriteString(std::u16string_view name, std::u16string_view text) {
    return platform::RegSetValueExW(key_, name, platform::REG_SZ, TerminatedUtf16(text)) == platform::ERROR_SUCCESS;
}

std::uint32_t CRegistry::ReadDword(std::u16string_view name, std::uint32_t fallback) {
    platform::RegistryValue value;
    const auto code = platform::RegQueryValueExW(key_, name, value);
    if (code == platform::ERROR_FILE_NOT_FOUND) WriteDword(name, fallback);
    const bool usable = code == platform::ERROR_SUCCESS && value.type == platform::REG_DWORD && value.data.size() == 4;
    if (!usable) return fallback;
    const auto& data = value.data;
    return data[0] | std::uint32_t{data[1]} << 8 | std::uint32_t{data[2]} << 16 | std::uint32_t{data[3]} << 24;
}

bool CRegistry::WriteDword(std::u16string_view name, std::uint32_t value) {
    const platform::Bytes bytes = {
        static_cast<std::uint8_t>(value & 0xFF), static_cast<std::uint8_t>(value >> 8 & 0xFF),
        static_cast<std::uint8_t>(value >> 16 & 0xFF), static_cast<std::uint8_t>(value >> 24)};
    return platform::RegSetValueExW(key_, name, platform::REG_DWORD, bytes) == platform::ERROR_SUCCESS;
}

bool CRegistry::WritePassword(std::u16string_view password) {
    const platform::Secret bytes(TerminatedUtf16(password));
    return platform::RegSetValueExW(key_, u"Password", platform::REG_BINARY, bytes.View()) == platform::ERROR_SUCCESS;
}

#include "toolkit/ClsBinData.h"

#include <algorithm>

#include "platform/Files.h"
#include "platform/Secret.h"
#include "platform/Text.h"
#include "toolkit/Base64.h"

namespace toolkit {
namespace {

bool SameName(std::string_view name, std::string_view lower) {
    const auto same = [](char c, char l) { return (c >= 'A' && c <= 'Z' ? c + 32 : c) == l; };
    return std::equal(name.begin(), name.end(), lower.begin(), lower.end(), same);
}

bool IsBase64(std::string_view encoding, OperationLog& log) {
    if (SameName(encoding, "base64")) return true;
    log.Value("Unknown encoding", encoding);
    return false;
}

// An odd last byte is half a character and is left out.
std::string FromUtf16LittleEndian(platform::ByteView bytes) {
    std::u16string text;
    text.reserve(bytes.size() / 2);
    for (std::size_t i = 0; i + 1 < bytes.size(); i += 2) {
        text.push_back(static_cast<char16_t>(bytes[i] | bytes[i + 1] << 8));
    }
    return platform::ToUtf8(text);
}

}  // namespace

ClsBinData::~ClsBinData() {
    Replace({});
}

void ClsBinData::Replace(platform::Bytes bytes) {
    const auto lock = Lock();
    if (!bytes_.empty()) platform::Wipe(bytes_.data(), bytes_.size());
    bytes_ = std::move(bytes);
}

bool ClsBinData::Append(platform::ByteView bytes) {
    Operation operation(*this, "AppendBinary2");
    if (bytes_.capacity() - bytes_.size() < bytes.size()) {
        // A vector that grows by itself would leave its old place unwiped.
        platform::Bytes larger;
        larger.reserve(std::max(bytes_.size() + bytes.size(), bytes_.capacity() * 2));
        larger.assign(bytes_.begin(), bytes_.end());
        Replace(std::move(larger));
    }
    bytes_.insert(bytes_.end(), bytes.begin(), bytes.end());
    return operation.Finish(true);
}

bool ClsBinData::LoadEncoded(std::string_view text, std::string_view encoding) {
    Operation operation(*this, "LoadEncoded");
    if (!IsBase64(encoding, operation.Log())) return false;
    auto bytes = DecodeBase64(text);
    if (!bytes) {
        operation.Log().Line("The text is not Base64.");
        return false;
    }
    Replace(std::move(*bytes));
    return operation.Finish(true);
}

std::optional<std::string> ClsBinData::GetEncoded(std::string_view encoding) {
    Operation operation(*this, "GetEncoded");
    if (!IsBase64(encoding, operation.Log())) return std::nullopt;
    operation.Finish(true);
    return EncodeBase64(bytes_);
}

bool ClsBinData::LoadFile(const std::filesystem::path& path) {
    Operation operation(*this, "LoadFile");
    auto bytes = platform::ReadWholeFile(path);
    if (!bytes) {
        operation.Log().Value("Failed to read the file", path.string());
        return false;
    }
    Replace(std::move(*bytes));
    return operation.Finish(true);
}

std::optional<std::string> ClsBinData::GetString(std::string_view charset) {
    Operation operation(*this, "GetString");
    std::optional<std::string> text;
    if (SameName(charset, "unicode")) {
        text = FromUtf16LittleEndian(bytes_);
    } else if (SameName(charset, "utf-8") || SameName(charset, "windows-1251")) {
        const auto page = SameName(charset, "utf-8") ? platform::CP_UTF8 : platform::CP_1251;
        if (const auto wide = platform::MultiByteToWideChar(page, platform::AsText(bytes_))) {
            text = platform::ToUtf8(*wide);
        }
    }
    if (!text) operation.Log().Value("The bytes are no text in the charset", charset);
    operation.Finish(text.has_value());
    return text;
}

}  // namespace toolkit

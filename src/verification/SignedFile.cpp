#include "src/verification/SignedFile.h"

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "platform/Text.h"

namespace verification {
namespace {

struct SystemReason {
    platform::ErrorCode code;
    int number;
};
constexpr SystemReason kSystemReasons[] = {
    {platform::ERROR_FILE_NOT_FOUND, ENOENT},    {platform::ERROR_PATH_NOT_FOUND, ENOENT},
    {platform::ERROR_ACCESS_DENIED, EACCES},     {platform::ERROR_DIRECTORY, EISDIR},
    {platform::ERROR_INVALID_DATA, EINVAL},      {platform::ERROR_READ_FAULT, EIO},
    {platform::ERROR_NOT_ENOUGH_MEMORY, ENOMEM}, {platform::ERROR_FILENAME_EXCED_RANGE, ENAMETOOLONG},
};

}  // namespace

MessageFault::MessageFault(platform::ErrorCode code)
    : std::runtime_error(platform::ToUtf8(tessaly::FormatErrorText(code))), code_(code) {}

void Raise(const tessaly::CommonClass& object) {
    throw MessageFault(object.lastError);
}

std::shared_ptr<platform::ByteSource> OpenSource(const std::filesystem::path& file) {
    if (auto input = platform::InputFile::Open(file)) return std::make_shared<platform::FileSource>(std::move(*input));
    const auto code = platform::GetLastError();
    const auto* const reason = std::ranges::find(kSystemReasons, code, &SystemReason::code);
    if (reason != std::end(kSystemReasons)) throw std::runtime_error(std::strerror(reason->number));
    throw MessageFault(code);
}

void OpenSigned(tessaly::CryptMessageDecode& decoder, std::shared_ptr<platform::ByteSource> source,
                std::uint32_t flags) {
    if (!decoder.OpenToDecode(flags) || !decoder.Update(std::move(source))) Raise(decoder);
    const auto type = decoder.GetParam(platform::CMSG_TYPE_PARAM);
    if (!type) Raise(decoder);
    if (*type == platform::CMSG_SIGNED) return;
    throw MessageFault(platform::CRYPT_E_UNEXPECTED_MSG_TYPE);
}

bool IsDetachedSignature(const std::filesystem::path& file) {
    tessaly::CryptMessageDecode decoder;
    OpenSigned(decoder, OpenSource(file));
    return !decoder.HasContent();
}

std::u16string ExtensionOf(const std::filesystem::path& file) {
    auto extension = platform::ToWide(file.extension().string());
    std::ranges::transform(extension, extension.begin(), platform::CharLowerW);
    return extension;
}

std::filesystem::path WithoutExtension(const std::filesystem::path& file) {
    return std::filesystem::path(file).replace_extension();
}

}  // namespace verification

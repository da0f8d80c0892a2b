#include "src/certificates/PfxSource.h"

#include <filesystem>
#include <optional>

#include "platform/Files.h"
#include "platform/Text.h"
#include "src/Norvik.h"

namespace certificates {
namespace {

constexpr std::uint64_t kLargestPfx = 256U << 20;

// One wording for all reasons is what callers look for; the log has the reason.
[[noreturn]] void ThrowInvalidPassword(const std::u16string& file) {
    LogError(file + u": " + tessaly::FormatErrorText(platform::GetLastError()));
    throw InvalidPassword(file);
}

std::optional<platform::Secret> AskPassword(const std::u16string& file) {
    const auto app = CNorvikApp::Current();
    if (app == nullptr) return std::nullopt;
    const auto name = std::filesystem::path(file).filename().u16string();
    return app->Interface().AskText(
        {.title = u"Отваряне на " + name + u" ...", .prompt = u"Въведете парола", .hidden = true});
}

}  // namespace

InvalidPassword::InvalidPassword(const std::u16string& file)
    : std::runtime_error("Invalid password for " + platform::ToUtf8(file)) {}

tessaly::CryptStore OpenPfx(const std::u16string& file, const platform::Secret& password) {
    tessaly::CryptStore source{platform::CertStore()};
    const auto bytes = platform::ReadWholeFile(file, kLargestPfx);
    if (!bytes) {
        source.lastError = platform::GetLastError();
        return source;
    }
    if (!platform::PFXIsPFXBlob(*bytes)) ThrowInvalidPassword(file);
    // An empty secret stands for the empty password and for none at all: makers wrote either.
    source.store = platform::PFXImportCertStore(*bytes, platform::Secret());
    if (source.store) return source;
    auto used = password.Empty() ? AskPassword(file) : password.Copy();
    if (!used) return source;
    source.store = platform::PFXImportCertStore(*bytes, *used);
    if (!source.store) ThrowInvalidPassword(file);
    return source;
}

}  // namespace certificates

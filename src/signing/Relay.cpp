#include "src/signing/Relay.h"

#include <optional>
#include <stdexcept>

#include "crypt/CommonClass.h"
#include "platform/Files.h"
#include "platform/Processes.h"
#include "platform/System.h"
#include "platform/Text.h"
#include "src/Norvik.h"
#include "src/signing/SignRequest.h"
#include "toolkit/CkJsonObjectW.h"
#include "units/BlankText.h"

namespace signing {
namespace {

constexpr char kLauncher[] = "NorvikRun.exe";
constexpr char kLibraryHost[] = "rundll32.exe";
constexpr std::uint64_t kLargestAnswer = 256U << 20;

std::filesystem::path PathOf(std::filesystem::path path, const char* what) {
    if (path.empty()) std::fprintf(stderr, "%s failed, error = %u\n", what, platform::GetLastError());
    return path;
}

[[noreturn]] void ThrowSystemText() {
    throw std::runtime_error(platform::ToUtf8(tessaly::FormatErrorText(platform::GetLastError())));
}

// The request may hold a password: readable by its owner alone, and never through a link that somebody put there.
std::filesystem::path WriteRelayFile(const char16_t* request) {
    const auto app = CNorvikApp::Current();
    if (!app || app->SessionFolder().empty()) throw std::runtime_error("There is no session folder for the request.");
    auto file = app->SessionFolder() / "out.txt";
    std::filesystem::remove(file);
    auto text = platform::ToUtf8(request);
    const bool written = platform::WriteWholeFile(file, platform::AsBytes(text), 0600);
    platform::Wipe(text.data(), text.size());
    if (!written) ThrowSystemText();
    return file;
}

void AnswerError(const std::u16string& text, NorvikJsonCallback callback, std::uint64_t context) {
    toolkit::CkJsonObjectW answer;
    answer.put_EmitCompact(false);
    answer.UpdateBool(u"Error", true);
    answer.UpdateString(u"ErrorString", text.c_str());
    callback(context, answer.Emit());
}

std::optional<std::u16string> ReadText(const std::filesystem::path& file) {
    const auto bytes = platform::ReadWholeFile(file, kLargestAnswer);
    if (!bytes) return std::nullopt;
    return platform::ToWide(platform::AsText(*bytes));
}

void CopyAnswer(std::uint64_t context, const char16_t* json) {
    *reinterpret_cast<std::u16string*>(context) = json;
}

void Show(const std::u16string& text, const char16_t* title) {
    if (const auto app = CNorvikApp::Current())
        app->Interface().ShowMessage({.text = text, .title = title, .icon = ui::Message::Icon::error});
}

}  // namespace

std::filesystem::path FindLauncher(const std::filesystem::path& library) {
    const auto process = PathOf(platform::GetModuleFileNameW(), "GetModuleFileName").filename();
    auto launcher = PathOf(library, "GetModuleHandle").parent_path() / kLauncher;
    std::error_code error;
    if (!std::filesystem::exists(launcher, error) || process == kLauncher || process == kLibraryHost) return {};
    return launcher;
}

void SignThroughLauncher(const std::filesystem::path& launcher, const char16_t* request, NorvikJsonCallback callback,
                         std::uint64_t context) {
    const auto file = WriteRelayFile(request);
    const auto failure = platform::RunAndWait(launcher, kLauncher, file, launcher.parent_path());
    if (failure != platform::ERROR_SUCCESS) {
        const auto text = tessaly::FormatErrorText(failure);
        LogError(text);
        Show(text, u"Norvik грешка!");
        AnswerError(text, callback, context);
        return;
    }
    toolkit::CkJsonObjectW answer;
    answer.put_EmitCompact(false);
    // Who cancels in the other process leaves nothing.
    const auto text = ReadText(file).value_or(u"");
    if (!answer.Load(text.c_str()) || units::IsBlank(text.c_str())) {
        AnswerError(answer.lastErrorText(), callback, context);
        return;
    }
    callback(context, answer.Emit());
}

void AnswerRelayedRequest(const char16_t* requestFile) {
    std::error_code error;
    if (requestFile == nullptr || !std::filesystem::exists(requestFile, error)) {
        Show(u"Грешни параметри за подписване", u"Грешка");
        return;
    }
    // What cannot be read is no request, and is not to be replaced by an answer.
    const auto request = ReadText(requestFile);
    if (!request) ThrowSystemText();
    std::u16string answer;
    SignByRequest(request->c_str(), CopyAnswer, reinterpret_cast<std::uint64_t>(&answer));
    // Where it cannot be written the asking process finds its own request again; there is nobody else to tell.
    if (!platform::WriteWholeFile(requestFile, platform::AsBytes(platform::ToUtf8(answer)), 0600))
        LogError(tessaly::FormatErrorText(platform::GetLastError()));
}

}  // namespace signing

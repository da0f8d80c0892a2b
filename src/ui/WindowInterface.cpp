#include "src/ui/WindowInterface.h"

#include <dlfcn.h>

#include <filesystem>

#include "platform/Text.h"
#include "src/Norvik.h"

namespace ui {
namespace {

// The windows belong to this very core: they are looked for beside it and nowhere else.
std::filesystem::path BesideThisLibrary(const char* name) {
    Dl_info info{};
    if (dladdr(reinterpret_cast<void*>(&BesideThisLibrary), &info) == 0 || info.dli_fname == nullptr) return {};
    return std::filesystem::path(info.dli_fname).replace_filename(name);
}

std::unique_ptr<UserInterface> LoadWindows() {
    const auto path = BesideThisLibrary("NorvikDialogs.so");
    // Never unloaded: the toolkit that draws leaves things behind which run its code until the process ends.
    void* const library = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL | RTLD_NODELETE);
    if (library == nullptr) throw Unavailable(std::string("Прозорците не могат да се заредят: ") + dlerror());
    const auto make = reinterpret_cast<MakeWindows>(dlsym(library, "NorvikMakeWindows"));
    if (make == nullptr) throw Unavailable("Прозорците не могат да се заредят: " + path.string());
    std::unique_ptr<UserInterface> windows(make());
    if (!windows) throw Unavailable("Прозорците не могат да се заредят.");
    return windows;
}

void LogUnavailable(const Unavailable& reason) {
    LogError(platform::ToWide(reason.what()));
}

}  // namespace

UserInterface& WindowInterface::Windows() {
    const std::lock_guard guard(lock_);
    if (!windows_) windows_ = LoadWindows();
    return *windows_;
}

void WindowInterface::ShowMessage(const Message& message) try {
    Windows().ShowMessage(message);
} catch (const Unavailable& reason) {
    LogUnavailable(reason);
    SilentInterface().ShowMessage(message);
}

std::optional<platform::Secret> WindowInterface::AskText(const TextQuestion& question) {
    return Windows().AskText(question);
}

// Who asks for a PIN is deep inside the host's services, which no exception may cross.
std::optional<platform::Secret> WindowInterface::AskPin(const platform::PinRequest& request) try {
    return Windows().AskPin(request);
} catch (const Unavailable& reason) {
    LogUnavailable(reason);
    return std::nullopt;
}

std::optional<SignDecision> WindowInterface::AskSign(SignQuestion question) {
    return Windows().AskSign(std::move(question));
}

platform::CertificateContext WindowInterface::AskCertificate(CertificateQuestion question) {
    return Windows().AskCertificate(std::move(question));
}

std::optional<std::filesystem::path> WindowInterface::AskOpenFile(const FileQuestion& question) {
    return Windows().AskOpenFile(question);
}

ResultsAction WindowInterface::ShowResults(const ResultsQuestion& question) {
    return Windows().ShowResults(question);
}

platform::Bytes WindowInterface::DrawReport(const ReportOrder& order) {
    return Windows().DrawReport(order);
}

void WindowInterface::ShowAbout() {
    Windows().ShowAbout();
}

// An operation goes on unseen where it cannot be shown.
std::unique_ptr<Progress> WindowInterface::ShowProgress(const std::u16string& file) try {
    return Windows().ShowProgress(file);
} catch (const Unavailable& reason) {
    LogUnavailable(reason);
    return nullptr;
}

}  // namespace ui

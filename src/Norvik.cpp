#include "src/Norvik.h"

#include <spdlog/spdlog.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <mutex>
#include <utility>

#include "crypt/CommonClass.h"
#include "platform/Error.h"
#include "platform/HostLog.h"
#include "platform/Registry.h"
#include "platform/System.h"
#include "platform/Text.h"
#include "src/SharedLogSink.h"
#include "src/settings/Settings.h"
#include "toolkit/CkGlobalW.h"
#include "units/Helpers.h"
#include "units/Registry.h"

namespace {

constexpr char kLoggerName[] = "Norvik_logger";
constexpr std::size_t kLogSize = 0x100000;
constexpr int kKeptLogs = 5;

// The slot of the one application. Never destroyed: threads that still run while the process ends may look at it.
struct Slot {
    std::mutex lock;
    std::shared_ptr<CNorvikApp> app;
};
Slot& TheSlot() {
    static Slot* const slot = new Slot;
    return *slot;
}

void WriteHostRemark(std::string_view utf8) {
    LogInfo(platform::ToWide(utf8));
}

}  // namespace

std::shared_ptr<CNorvikApp> CNorvikApp::Start(std::unique_ptr<ui::UserInterface> interface) {
    std::shared_ptr<CNorvikApp> app(new CNorvikApp(std::move(interface)));
    {
        const std::lock_guard guard(TheSlot().lock);
        TheSlot().app = app;
    }
    app->InitInstance();
    return app;
}

std::shared_ptr<CNorvikApp> CNorvikApp::Current() {
    const std::lock_guard guard(TheSlot().lock);
    return TheSlot().app;
}

void CNorvikApp::Stop() {
    std::shared_ptr<CNorvikApp> last;
    {
        const std::lock_guard guard(TheSlot().lock);
        last.swap(TheSlot().app);
    }
    if (last) last->CleanUp();
}

CNorvikApp::CNorvikApp(std::unique_ptr<ui::UserInterface> interface)
    : interface_(interface ? std::move(interface) : std::make_unique<ui::SilentInterface>()), owner_(getpid()) {}

// The sockets, the controls and the language of the thread need no preparation on this host.
bool CNorvikApp::InitInstance() {
    ReadInstallDir();
    const auto temp = platform::GetTempPathW();
    const auto folder = temp / "Norvik";
    if (temp.empty() || !MakeFolder(folder, 138)) return false;
    MakeLogger(folder);
    platform::SetHostLog(WriteHostRemark);

    auto guid = platform::UuidCreate();
    std::transform(guid.begin(), guid.end(), guid.begin(), platform::CharUpperW);
    const auto session = guid.empty() ? folder : folder / guid;
    leftover_ = platform::Leftover(session);
    if (!MakeFolder(session, 155)) return false;
    sessionFolder_ = session;
    global_ = std::make_unique<toolkit::CkGlobalW>();
    return true;
}

// An ordinary user may not open the machine's settings for writing: then the folder stays empty.
void CNorvikApp::ReadInstallDir() {
    CRegistry registry(platform::Hive::HKEY_LOCAL_MACHINE);
    if (registry.Open(settings::kMachineKey, true)) installDir_ = registry.ReadString(u"InstallDir") + u'\\';
}

bool CNorvikApp::MakeFolder(const std::filesystem::path& folder, int line) {
    // Another process that starts at this moment may make the folder first.
    if (mkdir(folder.c_str(), S_IRWXU) == 0) return true;
    const int failure = errno;
    std::error_code error;
    if (std::filesystem::is_directory(folder, error)) return true;
    platform::SetLastError(platform::ErrorFromErrno(failure));
    const auto reason = tessaly::FormatErrorText(platform::GetLastError());
    interface_->ShowMessage(
        {units::SourceMarkedText(u"src/Norvik", line, reason), u"Norvik", ui::Message::Icon::error});
    return false;
}

// Whatever prevents the log must not prevent the work.
void CNorvikApp::MakeLogger(const std::filesystem::path& folder) try {
    auto sink = std::make_shared<SharedLogSink>(folder / "Norvik.log", kLogSize, kKeptLogs);
    auto logger = std::make_shared<spdlog::logger>(kLoggerName, std::move(sink));
    logger->set_error_handler([](const std::string&) {});
    spdlog::drop(kLoggerName);
    spdlog::register_logger(logger);
    previousDefault_ = spdlog::default_logger();
    spdlog::set_default_logger(logger);
    spdlog::set_level(spdlog::level::info);
    logger_ = std::move(logger);
} catch (const std::exception&) {
    ForgetLogger();
}

void CNorvikApp::ForgetLogger() noexcept try {
    if (!logger_) return;
    if (spdlog::default_logger() == logger_) spdlog::set_default_logger(std::move(previousDefault_));
    spdlog::drop(kLoggerName);
} catch (const std::exception&) {
    // The log library could not be told; there is nobody left to tell.
}

void CNorvikApp::CleanUp() noexcept {
    if (clean_.exchange(true)) return;
    platform::SetHostLog(nullptr);
    global_.reset();
    if (owner_ == getpid() && !sessionFolder_.empty()) {
        std::error_code error;
        std::filesystem::remove_all(sessionFolder_, error);
        if (error && logger_) logger_->info(error.message());
    }
    ForgetLogger();
}

CNorvikApp::~CNorvikApp() {
    CleanUp();
}

void LogInfo(std::u16string_view text) {
    const auto app = CNorvikApp::Current();
    if (app && app->Logger()) app->Logger()->info(platform::ToUtf8(text));
}

void LogError(std::u16string_view text) {
    const auto app = CNorvikApp::Current();
    if (app && app->Logger()) app->Logger()->error(platform::ToUtf8(text));
}

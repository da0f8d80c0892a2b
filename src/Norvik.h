#pragma once
// The application object: folders, log and owner window of a process that uses the library, from load to unload.

#include <sys/types.h>

#include <atomic>
#include <filesystem>
#include <memory>
#include <string>
#include <string_view>

#include "platform/Leftovers.h"
#include "src/ui/UserInterface.h"

namespace spdlog {
class logger;
}
namespace toolkit {
class CkGlobalW;
}

class CNorvikApp {
  public:
    // Makes the object the current application and starts it. Messages of the start-up go to `interface`, and so does
    // all that later operations have to say; null: nobody is there to be told.
    static std::shared_ptr<CNorvikApp> Start(std::unique_ptr<ui::UserInterface> interface = nullptr);
    // The application of this process; null before the start and when the library is on its way out. Whoever runs
    // inside the library holds it, so that an unload on another thread takes nothing away under a running operation.
    static std::shared_ptr<CNorvikApp> Current();
    // Cleans the current application up and lets it go. Operations that other threads are still in keep the object, no
    // longer its folder.
    static void Stop();

    ~CNorvikApp();
    CNorvikApp(const CNorvikApp&) = delete;
    CNorvikApp& operator=(const CNorvikApp&) = delete;

    // The work folder of this process; empty if the start stopped early.
    [[nodiscard]] std::filesystem::path SessionFolder() const { return sessionFolder_; }
    [[nodiscard]] std::filesystem::path CrlCacheFolder() const { return sessionFolder_ / "CRLCache"; }
    // As it stood at the start, with a trailing backslash; empty if the machine's settings do not open for writing.
    [[nodiscard]] const std::u16string& InstallDir() const { return installDir_; }
    // Null if the log could not be made: then nothing is written.
    [[nodiscard]] const std::shared_ptr<spdlog::logger>& Logger() const { return logger_; }
    [[nodiscard]] ui::UserInterface& Interface() const { return *interface_; }

    std::atomic<void*> parentWindow = nullptr;  // owner of the dialogs
    std::atomic<bool> signAndEncrypt = false;

  private:
    explicit CNorvikApp(std::unique_ptr<ui::UserInterface> interface);
    bool InitInstance();
    void ReadInstallDir();
    bool MakeFolder(const std::filesystem::path& folder, int line);
    void MakeLogger(const std::filesystem::path& folder);
    // Removes the session folder with all that lies in it, unless this process only inherited the object by a fork, and
    // takes the logger out of the log library, which outlives this one where the application uses it too. Once only.
    void CleanUp() noexcept;
    void ForgetLogger() noexcept;

    std::filesystem::path sessionFolder_;
    platform::Leftover leftover_;
    std::unique_ptr<toolkit::CkGlobalW> global_;
    std::u16string installDir_;
    std::shared_ptr<spdlog::logger> logger_, previousDefault_;
    std::unique_ptr<ui::UserInterface> interface_;
    pid_t owner_ = 0;  // the process that made the session folder
    std::atomic<bool> clean_ = false;
};

// Write to the current application's log, as information and as error; nothing happens where there is none.
void LogInfo(std::u16string_view text);
void LogError(std::u16string_view text);

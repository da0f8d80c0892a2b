#pragma once
// The windows, loaded when the first one is needed: a process that never shows one never loads what draws them.

#include <mutex>

#include "src/ui/UserInterface.h"

namespace ui {

// What the library of the windows, NorvikDialogs.so beside the core, offers under the name "NorvikMakeWindows". The
// caller owns the object. Null: out of memory.
using MakeWindows = UserInterface* (*)();

class WindowInterface : public UserInterface {
  public:
    void ShowMessage(const Message& message) override;
    std::optional<platform::Secret> AskText(const TextQuestion& question) override;
    std::optional<platform::Secret> AskPin(const platform::PinRequest& request) override;
    std::optional<SignDecision> AskSign(SignQuestion question) override;
    platform::CertificateContext AskCertificate(CertificateQuestion question) override;
    std::optional<std::filesystem::path> AskOpenFile(const FileQuestion& question) override;
    ResultsAction ShowResults(const ResultsQuestion& question) override;
    platform::Bytes DrawReport(const ReportOrder& order) override;
    void ShowAbout() override;
    std::unique_ptr<Progress> ShowProgress(const std::u16string& file) override;

  private:
    // Throws Unavailable if the library of the windows cannot be loaded.
    UserInterface& Windows();

    std::mutex lock_;
    std::unique_ptr<UserInterface> windows_;
};

}  // namespace ui

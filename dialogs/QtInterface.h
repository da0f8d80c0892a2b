#pragma once
// The windows as the answers to an operation's questions.

#include "src/ui/UserInterface.h"

namespace dialogs {

class QtInterface : public ui::UserInterface {
  public:
    void ShowMessage(const ui::Message& message) override;
    std::optional<platform::Secret> AskText(const ui::TextQuestion& question) override;
    std::optional<platform::Secret> AskPin(const platform::PinRequest& request) override;
    std::optional<ui::SignDecision> AskSign(ui::SignQuestion question) override;
    platform::CertificateContext AskCertificate(ui::CertificateQuestion question) override;
    std::optional<std::filesystem::path> AskOpenFile(const ui::FileQuestion& question) override;
    ui::ResultsAction ShowResults(const ui::ResultsQuestion& question) override;
    platform::Bytes DrawReport(const ui::ReportOrder& order) override;
    void ShowAbout() override;
    std::unique_ptr<ui::Progress> ShowProgress(const std::u16string& file) override;
};

}  // namespace dialogs

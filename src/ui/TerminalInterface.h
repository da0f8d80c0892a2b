#pragma once
// The person at a terminal: messages go to standard error, PINs are read without echo from the terminal itself.

#include <map>
#include <optional>
#include <string>

#include "src/ui/UserInterface.h"

namespace ui {

// Reads a line from the controlling terminal without showing it. Empty optional: there is no terminal, or the person
// pressed Ctrl-C or Ctrl-D.
std::optional<platform::Secret> ReadHidden(std::string_view prompt);

// Certificates with their numbers from 1, as a person at the terminal chooses from them; names fit for a line. UTF-8.
std::string NumberedList(const std::vector<tessaly::CryptCertificate>& certificates);

class TerminalInterface : public UserInterface {
  public:
    // Answers every PIN question from now on, in place of the terminal: for scripts.
    void UsePin(platform::Secret pin) { scriptedPin_ = std::move(pin); }

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
    std::optional<platform::Secret> scriptedPin_;
    // A token's PIN is asked once in the run of a command over several files; one for a single use is asked each time.
    std::map<std::u16string, platform::Secret> remembered_;
};

}  // namespace ui

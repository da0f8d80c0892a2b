#pragma once
// The person in a test: remembers what was shown and answers PIN questions from a list.

#include <deque>
#include <functional>
#include <string>
#include <vector>

#include "platform/Text.h"
#include "src/ui/UserInterface.h"

namespace tests {

// What happened; outlives the interface that an application object owns.
struct Script {
    std::deque<std::string> pins, texts;  // answers; a question beyond them is cancelled
    std::vector<ui::TextQuestion> questions;
    std::vector<platform::PinRequest> asked;
    std::vector<ui::Message> shown;
    // Answer the windows; without one the window is cancelled. `signAsked` and `certificatesAsked` keep the questions.
    std::function<std::optional<ui::SignDecision>(const ui::SignQuestion&)> decide;
    std::function<platform::CertificateContext(const ui::CertificateQuestion&)> choose;
    std::vector<ui::SignQuestion> signAsked;
    std::vector<ui::CertificateQuestion> certificatesAsked;
    std::optional<std::filesystem::path> openFile;  // answers the question for a file; empty: cancelled
    std::vector<ui::FileQuestion> filesAsked;
    // Looks at the results while they are there.
    std::function<ui::ResultsAction(const ui::ResultsQuestion&)> results;
    int resultsShown = 0;
    int aboutShown = 0;
    [[nodiscard]] std::vector<std::string> Texts() const {
        std::vector<std::string> texts;
        for (const auto& message : shown)
            texts.push_back(platform::ToUtf8(message.text));
        return texts;
    }
};

class ScriptedInterface : public ui::UserInterface {
  public:
    explicit ScriptedInterface(Script& script) : script_(script) {}
    void ShowMessage(const ui::Message& message) override { script_.shown.push_back(message); }
    std::optional<platform::Secret> AskPin(const platform::PinRequest& request) override {
        script_.asked.push_back(request);
        return Next(script_.pins);
    }
    std::optional<platform::Secret> AskText(const ui::TextQuestion& question) override {
        script_.questions.push_back(question);
        return Next(script_.texts);
    }
    std::optional<ui::SignDecision> AskSign(ui::SignQuestion question) override {
        script_.signAsked.push_back(question);
        return script_.decide ? script_.decide(question) : std::nullopt;
    }
    platform::CertificateContext AskCertificate(ui::CertificateQuestion question) override {
        script_.certificatesAsked.push_back(question);
        return script_.choose ? script_.choose(question) : platform::CertificateContext();
    }
    std::optional<std::filesystem::path> AskOpenFile(const ui::FileQuestion& question) override {
        script_.filesAsked.push_back(question);
        return script_.openFile;
    }
    ui::ResultsAction ShowResults(const ui::ResultsQuestion& question) override {
        ++script_.resultsShown;
        return script_.results ? script_.results(question) : ui::ResultsAction::none;
    }
    // The script has no hands.
    platform::Bytes DrawReport(const ui::ReportOrder&) override { throw ui::Unavailable("nothing draws here"); }
    void ShowAbout() override { ++script_.aboutShown; }
    std::unique_ptr<ui::Progress> ShowProgress(const std::u16string&) override { return nullptr; }

  private:
    static std::optional<platform::Secret> Next(std::deque<std::string>& answers) {
        if (answers.empty()) return std::nullopt;
        platform::Secret answer(answers.front());
        answers.pop_front();
        return answer;
    }
    Script& script_;
};

}  // namespace tests

#include "src/Norvik.h"
#include "src/ui/UserInterface.h"

namespace ui {

void SilentInterface::ShowMessage(const Message& message) {
    LogInfo(message.title.empty() ? message.text : message.title + u": " + message.text);
}

std::optional<platform::Secret> SilentInterface::AskText(const TextQuestion& question) {
    LogInfo(u"Nobody can be asked: " + question.title);
    return std::nullopt;
}

std::optional<platform::Secret> SilentInterface::AskPin(const platform::PinRequest& request) {
    LogInfo(u"Nobody can be asked for the PIN of " + request.subject);
    return std::nullopt;
}

std::optional<SignDecision> SilentInterface::AskSign(SignQuestion) {
    throw Unavailable("Няма прозорци в този процес: няма кой да избере сертификат за подписване.");
}

platform::CertificateContext SilentInterface::AskCertificate(CertificateQuestion) {
    throw Unavailable("Няма прозорци в този процес: няма кой да избере сертификат.");
}

std::optional<std::filesystem::path> SilentInterface::AskOpenFile(const FileQuestion&) {
    throw Unavailable("Няма прозорци в този процес: няма кой да посочи файл.");
}

ResultsAction SilentInterface::ShowResults(const ResultsQuestion&) {
    throw Unavailable("Няма прозорци в този процес: няма кой да види резултатите.");
}

platform::Bytes SilentInterface::DrawReport(const ReportOrder&) {
    throw Unavailable("Няма прозорци в този процес: няма кой да начертае справката.");
}

void SilentInterface::ShowAbout() {
    throw Unavailable("Няма прозорци в този процес.");
}

std::unique_ptr<Progress> SilentInterface::ShowProgress(const std::u16string&) {
    return nullptr;
}

}  // namespace ui

#include "dialogs/QtInterface.h"

namespace dialogs {

void QtInterface::ShowMessage(const ui::Message&) {
    throw ui::Unavailable("ShowMessage");
}
std::optional<platform::Secret> QtInterface::AskText(const ui::TextQuestion&) {
    throw ui::Unavailable("AskText");
}
std::optional<platform::Secret> QtInterface::AskPin(const platform::PinRequest&) {
    throw ui::Unavailable("AskPin");
}
std::optional<ui::SignDecision> QtInterface::AskSign(ui::SignQuestion) {
    throw ui::Unavailable("AskSign");
}
platform::CertificateContext QtInterface::AskCertificate(ui::CertificateQuestion) {
    throw ui::Unavailable("AskCertificate");
}
void QtInterface::ShowAbout() {
    throw ui::Unavailable("ShowAbout");
}
std::unique_ptr<ui::Progress> QtInterface::ShowProgress(const std::u16string&) {
    return nullptr;
}

}  // namespace dialogs

extern "C" ui::UserInterface* NorvikMakeWindows();
ui::UserInterface* NorvikMakeWindows() {
    return new dialogs::QtInterface;
}

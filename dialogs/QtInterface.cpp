#include "dialogs/QtInterface.h"

#include <QMessageBox>
#include <QPushButton>

#include "dialogs/CTextEntryDlg.h"
#include "dialogs/Desktop.h"
#include "dialogs/Texts.h"
#include "src/ui/PinText.h"

namespace dialogs {
namespace {

QMessageBox::Icon IconOf(ui::Message::Icon icon) {
    switch (icon) {
        case ui::Message::Icon::information:
            return QMessageBox::Information;
        case ui::Message::Icon::warning:
            return QMessageBox::Warning;
        case ui::Message::Icon::error:
            return QMessageBox::Critical;
        case ui::Message::Icon::none:
            break;
    }
    return QMessageBox::NoIcon;
}

std::optional<platform::Secret> Enter(const QString& title, const QString& prompt, const QString& start, bool hidden) {
    CTextEntryDlg dialog(title, prompt, start, hidden);
    if (dialog.Show() != 1) return std::nullopt;
    auto utf8 = dialog.Text().toUtf8();
    platform::Secret answer(std::string_view(utf8.constData(), static_cast<std::size_t>(utf8.size())));
    platform::Wipe(utf8.data(), static_cast<std::size_t>(utf8.size()));
    return answer;
}

}  // namespace

void QtInterface::ShowMessage(const ui::Message& message) {
    RequireDesktop();
    QMessageBox box(OwnerWidget());
    box.setWindowTitle(message.title.empty() ? QStringLiteral("Norvik") : ToQString(message.title));
    box.setTextFormat(Qt::PlainText);
    box.setText(ToQString(message.text));
    box.setTextInteractionFlags(Qt::TextSelectableByMouse | Qt::TextSelectableByKeyboard);
    box.setIcon(IconOf(message.icon));
    auto* const ok = box.addButton(QStringLiteral("ОК"), QMessageBox::AcceptRole);
    ok->setObjectName(QStringLiteral("1"));
    box.setDefaultButton(ok);
    box.setEscapeButton(ok);
    RunDialog(box);
}

std::optional<platform::Secret> QtInterface::AskText(const ui::TextQuestion& question) {
    RequireDesktop();
    return Enter(ToQString(question.title), ToQString(question.prompt), ToQString(question.start), question.hidden);
}

std::optional<platform::Secret> QtInterface::AskPin(const platform::PinRequest& request) {
    RequireDesktop();
    return Enter(QStringLiteral("Norvik"), QString::fromStdString(ui::PinQuestion(request)), {}, true);
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

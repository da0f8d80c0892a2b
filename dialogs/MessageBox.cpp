#include "dialogs/MessageBox.h"

#include <QMessageBox>
#include <QPushButton>

#include "dialogs/Desktop.h"
#include "dialogs/Icons.h"
#include "dialogs/Texts.h"

namespace dialogs {
namespace {

QMessageBox::Icon BoxIcon(ui::Message::Icon icon) {
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

}  // namespace

void ShowMessageBox(const ui::Message& message) {
    QMessageBox box(OwnerWidget());
    box.setWindowTitle(message.title.empty() ? QStringLiteral("Norvik") : ToQString(message.title));
    box.setTextFormat(Qt::PlainText);
    box.setText(ToQString(message.text));
    box.setTextInteractionFlags(Qt::TextSelectableByMouse | Qt::TextSelectableByKeyboard);
    box.setIcon(BoxIcon(message.icon));
    box.setWindowIcon(Icon("sign"));
    auto* const ok = box.addButton(QStringLiteral("ОК"), QMessageBox::AcceptRole);
    ok->setObjectName(QStringLiteral("1"));
    box.setDefaultButton(ok);
    box.setEscapeButton(ok);
    RunDialog(box);
}

}  // namespace dialogs

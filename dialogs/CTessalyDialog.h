#pragma once

#include <QDialog>
#include <QIcon>

class QPushButton;

// The base of all dialogs: their font, their owner and the pieces that they are laid out with. Esc cancels.
class CTessalyDialog : public QDialog {
    Q_OBJECT
  public:
    CTessalyDialog();

    // Shows the dialog until it ends: QDialog::Accepted or QDialog::Rejected.
    int DoModal();

  protected:
    // A strip across the top that tells what the window is about.
    QWidget* MakeBanner(const QIcon& icon, const QString& subject, const QString& remark = {});
    // A button with the number as its name.
    QPushButton* MakeButton(const QString& text, int id);
};

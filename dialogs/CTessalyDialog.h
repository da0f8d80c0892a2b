#pragma once

#include <QDialog>
#include <QIcon>
#include <QSize>
#include <functional>

class CBitButton;
class QPlainTextEdit;
class QPushButton;

// The base of all dialogs: their font, their owner and the pieces that they are laid out with. Esc cancels.
class CTessalyDialog : public QDialog {
    Q_OBJECT
  public:
    CTessalyDialog();

    // Shows the dialog until it ends: QDialog::Accepted or QDialog::Rejected.
    int DoModal();

    [[nodiscard]] QSize sizeHint() const override;

  protected:
    // How large the dialog opens, in heights of a line of text; never smaller than its content needs.
    void OpenAt(int across, int down);
    // A strip across the top that tells what the window is about.
    QWidget* MakeBanner(const QIcon& icon, const QString& subject, const QString& remark = {});
    // A button with the number as its name.
    QPushButton* MakeButton(const QString& text, int id);
    // The same with a drawing of res/icons before its text.
    CBitButton* MakePictureButton(const QString& text, int id, const char* picture);
    // A text over several lines to read, select and copy, also with the keyboard.
    static QPlainTextEdit* MakeReading(int id, const QString& accessibleName, QWidget* parent);
    // The only way out of a window that just shows something: "OK", id 1, the default.
    CBitButton* MakeOkButton();
    // What a double click on a row does, for the keyboard: in the list's menu and on Alt+Enter, by which desktops show
    // what a thing is.
    void AddRowCommand(QWidget& list, const QString& text, const std::function<void()>& run);

  private:
    QSize extent_;
};

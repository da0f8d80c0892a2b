#pragma once

#include <QString>

#include "dialogs/CTessalyDialog.h"

class QLineEdit;

// Asks for one line of text, or for a password, which is not shown. An empty text cannot be given.
class CTextEntryDlg : public CTessalyDialog {
    Q_OBJECT
  public:
    CTextEntryDlg(const QString& title, const QString& prompt, const QString& start, bool hidden);
    ~CTextEntryDlg() override;

    // 1 if it ended with OK, else 2.
    int Show();
    // What stood in the field at the end, however it ended.
    [[nodiscard]] const QString& Text() const { return text_; }

    void done(int result) override;

  private:
    QLineEdit* edit_;
    QString text_;
    bool hidden_;
};

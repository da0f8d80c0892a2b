#pragma once

#include <QDialog>

// The base of all dialogs: the system's look, the owner window of the process, and its end with Esc.
class CTessalyDialog : public QDialog {
    Q_OBJECT
  public:
    explicit CTessalyDialog(QWidget* parent = nullptr);
};

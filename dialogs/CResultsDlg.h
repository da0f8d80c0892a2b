#pragma once

#include "dialogs/CTessalyDialog.h"
#include "src/ui/UserInterface.h"

class CSignatureTree;
class QPlainTextEdit;

// What was found about the signatures of a file.
class CResultsDlg : public CTessalyDialog {
    Q_OBJECT
  public:
    // The entries outlive the window.
    explicit CResultsDlg(const ui::ResultsQuestion& question);

    // Shows the window until it ends; what the person wants next.
    ui::ResultsAction Show();

  private:
    void OnSelection();

    CSignatureTree* tree_ = nullptr;
    QPlainTextEdit* comment_ = nullptr;
};

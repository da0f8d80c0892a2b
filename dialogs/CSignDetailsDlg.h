#pragma once

#include "dialogs/CTessalyDialog.h"
#include "src/verification/SignatureEntry.h"

class CColorListCtrl;
class QGroupBox;

// One signature, row by row. The entry stays the caller's and outlives the window.
class CSignDetailsDlg : public CTessalyDialog {
    Q_OBJECT
  public:
    explicit CSignDetailsDlg(const verification::SignatureEntry& entry);

  protected:
    void changeEvent(QEvent* event) override;

  private:
    QGroupBox* MakeList(const verification::SignatureEntry& entry);
    void FitListFont();

    CColorListCtrl* list_ = nullptr;
};

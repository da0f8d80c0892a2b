#pragma once

#include <optional>
#include <vector>

#include "dialogs/CTessalyDialog.h"
#include "src/ui/UserInterface.h"

class CColorListCtrl;
class QCheckBox;
class QComboBox;
class QLayout;

// With which certificate, in which form and with whose timestamp a file is signed.
class CSignDlg : public CTessalyDialog {
    Q_OBJECT
  public:
    explicit CSignDlg(ui::SignQuestion question);

    // Empty if the person cancels.
    std::optional<ui::SignDecision> Ask();

  private:
    QWidget* MakeCertificates();
    QWidget* MakeKind();
    QLayout* MakeTimestamp();
    QLayout* MakeButtons();
    [[nodiscard]] QString CertificateText(int row, int column);
    void TakeSelectedRow();
    void ViewCertificate();
    void OnOk();

    ui::SignQuestion question_;
    ui::SignDecision decision_;
    CColorListCtrl* list_ = nullptr;
    QCheckBox* detached_ = nullptr;
    QComboBox* authority_ = nullptr;
};

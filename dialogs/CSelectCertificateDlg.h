#pragma once

#include <exception>
#include <functional>
#include <vector>

#include "dialogs/CTessalyDialog.h"
#include "src/certificates/Choice.h"

class CColorListCtrl;
class QPushButton;

// One certificate of a list, checked for revocation before it counts as chosen.
class CSelectCertificateDlg : public CTessalyDialog {
    Q_OBJECT
  public:
    using Check = std::function<tessaly::CertStatusResult(const platform::CertificateContext&)>;
    CSelectCertificateDlg(const QString& title, std::vector<tessaly::CryptCertificate> certificates,
                          Check check = certificates::CheckChoice);

    // 1 if it ended with OK and the check let the choice pass, else 2. Throws what the check throws.
    int Show();
    // Null unless Show answered 1.
    [[nodiscard]] const platform::CertificateContext& Selected() const { return selected_; }

  private:
    void MakeList();
    QLayout* MakeButtons();
    [[nodiscard]] QString CertificateText(int row, int column);
    void TakeSelectedRow();
    void View();
    void OnOk();

    std::vector<tessaly::CryptCertificate> certificates_;
    Check check_;
    platform::CertificateContext selected_;
    std::exception_ptr failure_;
    CColorListCtrl* list_ = nullptr;
    QPushButton *ok_ = nullptr, *view_ = nullptr;
};

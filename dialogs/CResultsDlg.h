#pragma once

#include "dialogs/CTessalyDialog.h"
#include "dialogs/CValidationResponseDlg.h"
#include "src/results/ProtectedContent.h"
#include "src/ui/UserInterface.h"

class CBitButton;
class CColorListCtrl;
class CLegend;
class CSignatureTree;
class QGridLayout;
class QMenu;
class QPlainTextEdit;

// What was found about the signatures of a file, and the file that they protect. The entries stay the caller's and
// outlive the window.
class CResultsDlg : public CTessalyDialog {
    Q_OBJECT
  public:
    explicit CResultsDlg(const ui::ResultsQuestion& question);

    // Takes the content of an attached signature out into the work folder, says so if that fails, and shows the window
    // until it ends. What the person wants next.
    ui::ResultsAction Show();

  private:
    void MakeSignatures(QGridLayout& grid);
    void MakeContent(QGridLayout& grid);
    QLayout* MakeComment();
    QMenu* MakeEditMenu();
    CBitButton* MakeToolButton(const QString& text, int id, const char* picture, void (CResultsDlg::*action)());

    void Extract();
    void Open();
    void Save();
    void ViewCertificate();
    void ViewDetails();
    void Print();
    void OnSelection();

    const verification::SignatureEntries& entries_;
    std::filesystem::path file_;
    results::ProtectedContent content_;
    bool canEdit_;
    ui::ResultsAction action_ = ui::ResultsAction::none;
    CValidationResponseDlg validationResponse_;
    CLegend* legend_ = nullptr;
    CSignatureTree* tree_ = nullptr;
    CColorListCtrl* list_ = nullptr;
    QPlainTextEdit* comment_ = nullptr;
    CBitButton* certificate_ = nullptr;
    CBitButton* edit_ = nullptr;
};

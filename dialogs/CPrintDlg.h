#pragma once

#include "dialogs/CTessalyDialog.h"
#include "src/results/ReportContent.h"

class QLineEdit;
class QPrinter;

// Asks for a header and a footer, keeps both in the settings, and prints the report on the signatures of a file: to a
// printer, or to a PDF file that is there complete or not at all.
class CPrintDlg : public CTessalyDialog {
    Q_OBJECT
  public:
    // The entries are needed only here.
    CPrintDlg(const verification::SignatureEntries& entries, const std::u16string& fileName, QWidget* parent = nullptr);

  private:
    QWidget* MakeTexts();
    QWidget* MakeNotes();
    QLayout* MakeButtons();
    void OnPrint();
    bool AskPrinter(QPrinter& printer);
    void Print(QPrinter& printer) const;

    results::ReportContent report_;
    QLineEdit *header_, *footer_;
};

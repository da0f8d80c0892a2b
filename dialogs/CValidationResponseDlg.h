#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "dialogs/CTessalyDialog.h"

class QTreeWidget;
class QPlainTextEdit;

// One answer about a certificate's revocation: a list of fields, and the whole of the selected one in a box. The
// settings of the verification are read when the object is made, which stores those that are missing.
class CValidationResponseDlg : public CTessalyDialog {
    Q_OBJECT
  public:
    using Fields = std::map<std::u16string, std::u16string>;
    explicit CValidationResponseDlg(Fields fields = {});

  protected:
    void showEvent(QShowEvent* event) override;

  private:
    void ReadSettings();
    void MakeControls();
    void FillList();
    void ShowRow();

    Fields fields_;
    std::vector<std::u16string> rowTexts_;
    std::uint32_t verificationMethod_ = 0, useLocalCrl_ = 0, doNotUseCrlCache_ = 0;
    std::u16string localCrl_, certFile_, ocspUrl_;
    QTreeWidget* list_ = nullptr;
    QPlainTextEdit* text_ = nullptr;
};

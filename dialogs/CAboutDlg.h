#pragma once

#include "dialogs/CTessalyDialog.h"

// Name, picture and version.
class CAboutDlg : public CTessalyDialog {
    Q_OBJECT
  public:
    CAboutDlg();
};

#pragma once

#include <QComboBox>

// A combo whose list is as wide as its widest text, so that long names can be read.
class CExtComboBox : public QComboBox {
    Q_OBJECT
  public:
    using QComboBox::QComboBox;
    void showPopup() override;
};

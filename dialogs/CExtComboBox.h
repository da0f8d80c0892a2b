#pragma once

#include <QComboBox>

// A combo whose list is as wide as its widest text, so that long names can be read.
class CExtComboBox : public QComboBox {
    Q_OBJECT
  public:
    using QComboBox::QComboBox;
    void showPopup() override;

  protected:
    // A text that the closed combo has no room for is elided, and told whole in a tool tip.
    void paintEvent(QPaintEvent* event) override;
    bool event(QEvent* event) override;

  private:
    [[nodiscard]] int RoomForText() const;
};

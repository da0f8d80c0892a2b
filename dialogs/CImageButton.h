#pragma once

#include <QPushButton>

// A button that shows a picture alone. What it does is told by its tool tip and to accessibility tools.
class CImageButton : public QPushButton {
    Q_OBJECT
  public:
    // `meaning` may carry a mnemonic, which becomes the button's shortcut.
    CImageButton(const QString& meaning, QWidget* parent);
    // A drawing of res/icons; without one the frame is empty.
    void SetImage(const char* name);

    [[nodiscard]] QSize sizeHint() const override;
};

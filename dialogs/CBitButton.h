#pragma once

#include <QPushButton>

// A button with a picture to the left of its text, both centred as a group, in the desktop's own look.
class CBitButton : public QPushButton {
    Q_OBJECT
  public:
    CBitButton(const QString& text, QWidget* parent);
    // A drawing of res/icons; without one there is only the text.
    void SetImage(const char* name);
};

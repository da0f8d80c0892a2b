#include "dialogs/CBitButton.h"

#include "dialogs/Icons.h"

namespace {
constexpr int kImage = 16;
}

CBitButton::CBitButton(const QString& text, QWidget* parent) : QPushButton(text, parent) {
    setAutoDefault(false);
}

void CBitButton::SetImage(const char* name) {
    setIcon(dialogs::Icon(name));
    setIconSize(QSize(kImage, kImage));
}

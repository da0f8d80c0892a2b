#include "dialogs/CImageButton.h"

#include "dialogs/Icons.h"

namespace {
constexpr int kImage = 24, kMargin = 6;
}

CImageButton::CImageButton(const QString& meaning, QWidget* parent) : QPushButton(parent) {
    setAutoDefault(false);
    setIconSize(QSize(kImage, kImage));
    setShortcut(QKeySequence::mnemonic(meaning));
    auto words = meaning;
    words.remove(QLatin1Char('&'));
    setAccessibleName(words);
    setToolTip(words);
}

void CImageButton::SetImage(const char* name) {
    setIcon(dialogs::Icon(name));
}

// Square, and the same with and without a picture, so that a row of them does not jump.
QSize CImageButton::sizeHint() const {
    const int side = kImage + 2 * kMargin;
    return {side, side};
}

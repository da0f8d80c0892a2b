#pragma once

#include <QIcon>
#include <QPalette>

#include "crypt/Status.h"

namespace dialogs {

// A drawing of res/icons in the palette's text colour, dimmed where it is disabled.
QIcon Icon(const char* name);
// The same in a colour of its own.
QIcon Icon(const char* name, const QColor& colour);

// Whether the desktop is dark: colours of our own come in pairs.
bool IsDark(const QPalette& palette);

// Colours for states; never alone, always with icon and word.
using State = tessaly::StatusClass;
QColor ColourOf(State state, const QPalette& palette);
QIcon IconOf(State state, const QPalette& palette);

}  // namespace dialogs

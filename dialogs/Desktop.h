#pragma once
// What windows need around them: an application object, a display, an owner.

#include <QDialog>

namespace dialogs {

// Makes windows possible on this thread: with the application object of the caller on its own thread, or with one of
// ours, made at the first window of the process on the thread that asked for it. Throws ui::Unavailable with the reason
// where no window can be shown.
void RequireDesktop();

// Makes drawing possible, for which no display is needed: where there is none, an application object of ours stands in
// that shows nothing, and windows stay unavailable from then on. Throws ui::Unavailable where the caller's own object
// cannot draw.
void RequireDrawing();

// The widget that a new dialog belongs to: the dialog that is open already, else the caller's own widget, if its window
// was given. Null where there is none.
QWidget* OwnerWidget();

// Shows the dialog until it ends, above the window that the caller gave, also if that is another toolkit's.
int RunDialog(QDialog& dialog);

// The wait cursor for as long as the object lives.
class WaitCursor {
  public:
    WaitCursor();
    ~WaitCursor();
    WaitCursor(const WaitCursor&) = delete;
    WaitCursor& operator=(const WaitCursor&) = delete;
};

}  // namespace dialogs

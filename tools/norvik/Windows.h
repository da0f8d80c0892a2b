#pragma once
// How a command comes by windows, or by what draws like them. They hang on the shared core, and the command has a core
// of its own inside: two of them in one process would know nothing of each other's application object. So such a
// command is run by a second program, which shares the core with the windows and has the same commands.

namespace cli {

class WindowsNeeded {};

// To be called while the command line is read, before anything is done or read from standard input. Throws
// WindowsNeeded in a program that cannot show any.
void NeedWindows();

// Becomes the other program; comes back, with an exit status, only if it is not there.
int RunWithWindows(char** arguments);

}  // namespace cli

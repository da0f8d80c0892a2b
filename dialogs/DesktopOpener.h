#pragma once
// Opening a file with the program that the desktop has for it.

#include <QObject>
#include <filesystem>
#include <functional>

namespace dialogs {

enum class OpenFailure { noApplication, other };

// Hands the file to the desktop and returns at once. `failed` is called later, or before the return, if it turns out
// that the file was not opened; not any more once `receiver` is gone, and not for what a program says when it has been
// open for a while.
void OpenWithDesktop(const std::filesystem::path& file, QObject& receiver, std::function<void(OpenFailure)> failed);

// Whether desktops run such a file instead of showing it: starters, scripts and programs, by name or by content. A file
// that is marked as executable and of no known type counts, too.
bool DesktopWouldRun(const std::filesystem::path& file);

}  // namespace dialogs

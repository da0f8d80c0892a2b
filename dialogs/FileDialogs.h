#pragma once
// The desktop's dialogs for choosing files, with buttons in the language of our windows.

#include <QString>
#include <filesystem>
#include <optional>

namespace dialogs {

// A file that exists, to begin with in the current folder. Empty: cancelled.
std::optional<std::filesystem::path> AskOpenFile(const QString& title);

// Where to save, with a name proposed in a folder; an existing file is asked about. Empty: cancelled.
std::optional<std::filesystem::path> AskSaveFile(const QString& title, const std::filesystem::path& proposed);

}  // namespace dialogs

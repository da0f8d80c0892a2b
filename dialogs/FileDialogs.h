#pragma once
// The desktop's dialogs for choosing files, in the language of our windows.

#include <QString>
#include <QStringList>
#include <filesystem>
#include <optional>

namespace dialogs {

// A file that exists, to begin with in the current folder. Empty: cancelled.
std::optional<std::filesystem::path> AskOpenFile(const QString& title);

// Where to save, with a name proposed in a folder; an existing file is asked about. `filters`: kinds of files, such as
// "PEM (*.pem)", of which the chosen one completes a name without an extension; none: all files. Empty: cancelled.
std::optional<std::filesystem::path> AskSaveFile(const QString& title, const std::filesystem::path& proposed,
                                                 const QStringList& filters = {});

}  // namespace dialogs

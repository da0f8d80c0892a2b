#pragma once
// What the desktop knows of a file by its name alone.

#include <QIcon>
#include <QString>
#include <filesystem>

namespace dialogs {

// What such files are called: in Bulgarian where the desktop's table of types has it, else as the desktop says it.
QString TypeName(const std::filesystem::path& file);
QIcon TypeIcon(const std::filesystem::path& file);

}  // namespace dialogs

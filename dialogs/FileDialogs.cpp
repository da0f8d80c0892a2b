#include "dialogs/FileDialogs.h"

#include <QDir>
#include <QFileDialog>

#include "dialogs/Desktop.h"
#include "dialogs/Texts.h"
#include "units/Helpers.h"

namespace dialogs {
namespace {

// The first pair of a filter text "words (pattern)|pattern||". The pattern for all files would leave out names without
// a dot here.
QString NameFilter(const std::u16string& text) {
    return ToQString(text).section(QLatin1Char('|'), 0, 0).replace(QStringLiteral("*.*"), QStringLiteral("*"));
}

std::optional<std::filesystem::path> Choose(QFileDialog& dialog, const QString& acceptText) {
    dialog.setLabelText(QFileDialog::LookIn, QStringLiteral("Папка:"));
    dialog.setLabelText(QFileDialog::FileName, QStringLiteral("&Име на файла:"));
    dialog.setLabelText(QFileDialog::FileType, QStringLiteral("Файлове от тип:"));
    dialog.setLabelText(QFileDialog::Accept, acceptText);
    dialog.setLabelText(QFileDialog::Reject, QStringLiteral("Отказ"));
    if (RunDialog(dialog) != QDialog::Accepted || dialog.selectedFiles().isEmpty()) return std::nullopt;
    return QFile::encodeName(dialog.selectedFiles().front()).toStdString();
}

}  // namespace

std::optional<std::filesystem::path> AskOpenFile(const QString& title) {
    QFileDialog dialog(OwnerWidget(), title, QDir::currentPath());
    dialog.setFileMode(QFileDialog::ExistingFile);
    return Choose(dialog, QStringLiteral("&Отвори"));
}

std::optional<std::filesystem::path> AskSaveFile(const QString& title, const std::filesystem::path& proposed) {
    QFileDialog dialog(OwnerWidget(), title, QFile::decodeName(proposed.parent_path().c_str()),
                       NameFilter(units::LoadStringW(327)));
    dialog.setAcceptMode(QFileDialog::AcceptSave);
    dialog.selectFile(QFile::decodeName(proposed.filename().c_str()));
    return Choose(dialog, QStringLiteral("&Съхрани"));
}

}  // namespace dialogs

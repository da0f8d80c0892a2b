#include "dialogs/FileDialogs.h"

#include <QDir>
#include <QFileDialog>
#include <QFileSystemModel>
#include <QHeaderView>
#include <QIdentityProxyModel>
#include <QLocale>
#include <QTreeView>

#include "dialogs/Desktop.h"
#include "dialogs/FileType.h"
#include "dialogs/Icons.h"
#include "dialogs/Texts.h"
#include "units/Helpers.h"

namespace dialogs {
namespace {

constexpr int kName = 0, kSize = 1, kType = 2;  // columns of the list

// The first pair of a filter text "words (pattern)|pattern||". The pattern for all files would leave out names without
// a dot here.
QString NameFilter(const std::u16string& text) {
    return ToQString(text).section(QLatin1Char('|'), 0, 0).replace(QStringLiteral("*.*"), QStringLiteral("*"));
}

// "pem" of "PEM (*.pem)"; empty for all files.
QString SuffixOf(const QString& filter) {
    return filter.section(QStringLiteral("(*."), 1).section(QLatin1Char(')'), 0, 0);
}

// Small sizes in the form that stands behind a number, which the toolkit's translation does not use.
QString SizeText(qint64 size) {
    if (size == 1) return QStringLiteral("1 байт");
    if (size < 1024) return QStringLiteral("%1 байта").arg(size);
    return QLocale(QLocale::Bulgarian).formattedDataSize(size, 1, QLocale::DataSizeTraditionalFormat);
}

// Sizes and types, for which the toolkit takes the words from the language of the process.
class BulgarianCells : public QIdentityProxyModel {
  public:
    using QIdentityProxyModel::QIdentityProxyModel;
    [[nodiscard]] QVariant data(const QModelIndex& index, int role) const override {
        const auto* const files = qobject_cast<const QFileSystemModel*>(sourceModel());
        const auto source = mapToSource(index);
        const bool ours = role == Qt::DisplayRole && (index.column() == kSize || index.column() == kType);
        if (!ours || files == nullptr || files->isDir(source)) return QIdentityProxyModel::data(index, role);
        if (index.column() == kType) return TypeName(QFile::encodeName(files->filePath(source)).toStdString());
        return SizeText(files->size(source));
    }
};

// The list of the toolkit's own dialog; null where the desktop's stands in for it.
QTreeView* OwnList(const QFileDialog& dialog) {
    return dialog.findChild<QTreeView*>(QStringLiteral("treeView"));
}

// Room for the words in the list.
void FitList(QFileDialog& dialog, const QTreeView& list) {
    dialog.setProxyModel(new BulgarianCells(&dialog));
    list.header()->setSectionResizeMode(QHeaderView::ResizeToContents);
    list.header()->setSectionResizeMode(kName, QHeaderView::Stretch);
    const int unit = dialog.fontMetrics().height();
    list.header()->setMinimumSectionSize(7 * unit);  // on a small screen the names would go first
    dialog.resize(58 * unit, 32 * unit);
}

// Desktops show the sign before an Alt key as it stands.
std::optional<std::filesystem::path> Choose(QFileDialog& dialog, QString acceptText) {
    const auto* const list = OwnList(dialog);
    if (list == nullptr) acceptText.remove(QLatin1Char('&'));
    dialog.setWindowIcon(Icon("open"));
    dialog.setLabelText(QFileDialog::LookIn, QStringLiteral("Папка:"));
    dialog.setLabelText(QFileDialog::FileName, QStringLiteral("&Име на файла:"));
    dialog.setLabelText(QFileDialog::FileType, QStringLiteral("Файлове от тип:"));
    dialog.setLabelText(QFileDialog::Accept, acceptText);
    dialog.setLabelText(QFileDialog::Reject, QStringLiteral("Отказ"));
    if (list != nullptr) FitList(dialog, *list);
    if (RunDialog(dialog) != QDialog::Accepted || dialog.selectedFiles().isEmpty()) return std::nullopt;
    return QFile::encodeName(dialog.selectedFiles().front()).toStdString();
}

}  // namespace

std::optional<std::filesystem::path> AskOpenFile(const QString& title) {
    QFileDialog dialog(OwnerWidget(), title, QDir::currentPath());
    dialog.setFileMode(QFileDialog::ExistingFile);
    return Choose(dialog, QStringLiteral("&Отвори"));
}

std::optional<std::filesystem::path> AskSaveFile(const QString& title, const std::filesystem::path& proposed,
                                                 const QStringList& filters) {
    QFileDialog dialog(OwnerWidget(), title, QFile::decodeName(proposed.parent_path().c_str()));
    dialog.setAcceptMode(QFileDialog::AcceptSave);
    dialog.setNameFilters(filters.isEmpty() ? QStringList{NameFilter(units::LoadStringW(327))} : filters);
    dialog.setDefaultSuffix(SuffixOf(filters.value(0)));
    QObject::connect(&dialog, &QFileDialog::filterSelected, &dialog,
                     [&dialog](const QString& filter) { dialog.setDefaultSuffix(SuffixOf(filter)); });
    dialog.selectFile(QFile::decodeName(proposed.filename().c_str()));
    return Choose(dialog, QStringLiteral("&Съхрани"));
}

}  // namespace dialogs

#include "dialogs/FileType.h"

#include <QFile>
#include <QFileInfo>
#include <QMimeDatabase>
#include <QStandardPaths>
#include <QXmlStreamReader>

#include "dialogs/Icons.h"

namespace dialogs {
namespace {

QMimeType TypeOf(const std::filesystem::path& file) {
    return QMimeDatabase().mimeTypeForFile(QFile::decodeName(file.filename().c_str()), QMimeDatabase::MatchExtension);
}

// The table of the desktop in the language of our windows, whatever the language of the process (freedesktop.org Shared
// MIME-info Database, 2.2: a file MEDIA/SUBTYPE.xml for each type). Empty if it has no such name.
QString BulgarianName(const QMimeType& type) {
    QFile file(
        QStandardPaths::locate(QStandardPaths::GenericDataLocation, QStringLiteral("mime/%1.xml").arg(type.name())));
    if (!file.open(QIODevice::ReadOnly)) return {};
    QXmlStreamReader xml(&file);
    while (!xml.atEnd()) {
        if (xml.readNext() != QXmlStreamReader::StartElement || xml.name() != QStringLiteral("comment")) continue;
        const auto language = xml.attributes().value(QStringLiteral("xml:lang"));
        if (language == QStringLiteral("bg")) return xml.readElementText(QXmlStreamReader::IncludeChildElements);
    }
    return {};
}

}  // namespace

QString TypeName(const std::filesystem::path& file) {
    const auto type = TypeOf(file);
    if (type.isDefault()) {
        const auto suffix = QFileInfo(QFile::decodeName(file.c_str())).suffix().toUpper();
        return suffix.isEmpty() ? QStringLiteral("Файл") : QStringLiteral("Файл %1").arg(suffix);
    }
    const auto name = BulgarianName(type);
    return name.isEmpty() ? type.comment() : name;
}

QIcon TypeIcon(const std::filesystem::path& file) {
    const auto type = TypeOf(file);
    for (const auto& name : {type.iconName(), type.genericIconName()})
        if (QIcon::hasThemeIcon(name)) return QIcon::fromTheme(name);
    return Icon("file");
}

}  // namespace dialogs

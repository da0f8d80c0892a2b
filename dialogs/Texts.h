#pragma once
// The library's UTF-16 texts and those of the windows.

#include <QString>
#include <QTextDocument>
#include <string>
#include <string_view>

#include "platform/Text.h"

namespace dialogs {

inline QString ToQString(std::u16string_view text) {
    return QString::fromUtf16(text.data(), static_cast<qsizetype>(text.size()));
}
inline std::u16string FromQString(const QString& text) {
    return text.toStdU16String();
}

// A name that somebody else chose, fit to stand in a line of ours: without line ends and what turns the direction of
// writing.
inline QString OneLine(std::u16string_view text) {
    return QString::fromStdString(platform::OneLineUtf8(text));
}

// What looks like markup stays text in a tool tip.
inline QString PlainToolTip(const QString& text) {
    return Qt::mightBeRichText(text) ? QStringLiteral("<qt>%1</qt>").arg(text.toHtmlEscaped()) : text;
}

}  // namespace dialogs

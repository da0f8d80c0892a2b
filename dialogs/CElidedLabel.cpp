#include "dialogs/CElidedLabel.h"

#include <QEvent>
#include <QHelpEvent>
#include <QStyle>
#include <QStylePainter>
#include <QToolTip>
#include <algorithm>

#include "dialogs/Texts.h"

namespace {
constexpr int kLongestLetters = 40;
}

CElidedLabel::CElidedLabel(const QString& text, QWidget* parent) : QLabel(text, parent) {
    setTextFormat(Qt::PlainText);
    setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Preferred);
}

QSize CElidedLabel::sizeHint() const {
    const auto size = QLabel::sizeHint();
    return {std::min(size.width(), kLongestLetters * fontMetrics().averageCharWidth()), size.height()};
}

QSize CElidedLabel::minimumSizeHint() const {
    return sizeHint();
}

bool CElidedLabel::IsCut() const {
    return fontMetrics().horizontalAdvance(text()) > contentsRect().width();
}

void CElidedLabel::paintEvent(QPaintEvent*) {
    QStylePainter painter(this);
    const auto shown = fontMetrics().elidedText(text(), Qt::ElideMiddle, contentsRect().width());
    style()->drawItemText(&painter, contentsRect(), static_cast<int>(alignment()), palette(), isEnabled(), shown,
                          foregroundRole());
}

bool CElidedLabel::event(QEvent* event) {
    if (event->type() != QEvent::ToolTip || !IsCut()) return QLabel::event(event);
    QToolTip::showText(static_cast<QHelpEvent*>(event)->globalPos(), dialogs::PlainToolTip(text()), this);
    return true;
}

#include "dialogs/AiryRows.h"

#include <QApplication>
#include <QFocusEvent>

namespace {

// Grey as dark as the colour, so that the text on it stays as readable.
void ShowFocus(QAbstractItemView& list, bool focused) {
    auto palette = list.palette();
    const auto colour = QApplication::palette(&list).color(QPalette::Active, QPalette::Highlight);
    const int grey = qGray(colour.rgb());
    palette.setColor(QPalette::Highlight, focused ? colour : QColor(grey, grey, grey));
    list.setPalette(palette);
}

}  // namespace

AiryRows::AiryRows(QAbstractItemView* list) : QStyledItemDelegate(list) {
    list->installEventFilter(this);
    ShowFocus(*list, false);
}

QSize AiryRows::sizeHint(const QStyleOptionViewItem& option, const QModelIndex& index) const {
    const auto size = QStyledItemDelegate::sizeHint(option, index);
    const int air = option.fontMetrics.height() / 2;
    return {size.width() + air, size.height() + air};
}

// A menu over the list borrows the keyboard only.
bool AiryRows::eventFilter(QObject* watched, QEvent* event) {
    auto* const list = qobject_cast<QAbstractItemView*>(watched);
    if (list == nullptr || list != parent()) return QStyledItemDelegate::eventFilter(watched, event);
    const bool comes = event->type() == QEvent::FocusIn, goes = event->type() == QEvent::FocusOut;
    if ((comes || goes) && static_cast<QFocusEvent*>(event)->reason() != Qt::PopupFocusReason) ShowFocus(*list, comes);
    return false;
}

#include "dialogs/CExtComboBox.h"

#include <QAbstractItemView>
#include <QHelpEvent>
#include <QStyle>
#include <QStyleOptionComboBox>
#include <QStylePainter>
#include <QToolTip>

#include "dialogs/Texts.h"

void CExtComboBox::showPopup() {
    int widest = 0;
    for (int i = 0; i < count(); ++i)
        widest = std::max(widest, fontMetrics().horizontalAdvance(itemText(i)));
    const int margins = 4 * style()->pixelMetric(QStyle::PM_FocusFrameHMargin, nullptr, this) + 8;
    view()->setMinimumWidth(widest + margins + style()->pixelMetric(QStyle::PM_ScrollBarExtent, nullptr, this));
    QComboBox::showPopup();
}

void CExtComboBox::paintEvent(QPaintEvent*) {
    QStylePainter painter(this);
    painter.setPen(palette().color(QPalette::Text));
    QStyleOptionComboBox option;
    initStyleOption(&option);
    option.currentText = fontMetrics().elidedText(option.currentText, Qt::ElideMiddle, RoomForText());
    painter.drawComplexControl(QStyle::CC_ComboBox, option);
    painter.drawControl(QStyle::CE_ComboBoxLabel, option);
}

bool CExtComboBox::event(QEvent* event) {
    if (event->type() != QEvent::ToolTip) return QComboBox::event(event);
    const bool cut = fontMetrics().horizontalAdvance(currentText()) > RoomForText();
    const auto tip = cut ? dialogs::PlainToolTip(currentText()) : toolTip();
    QToolTip::showText(static_cast<QHelpEvent*>(event)->globalPos(), tip, this);
    return true;
}

int CExtComboBox::RoomForText() const {
    QStyleOptionComboBox option;
    initStyleOption(&option);
    constexpr int kPadding = 4;
    return style()->subControlRect(QStyle::CC_ComboBox, &option, QStyle::SC_ComboBoxEditField, this).width() - kPadding;
}

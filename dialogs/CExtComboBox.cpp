#include "dialogs/CExtComboBox.h"

#include <QAbstractItemView>
#include <QStyle>

void CExtComboBox::showPopup() {
    int widest = 0;
    for (int i = 0; i < count(); ++i)
        widest = std::max(widest, fontMetrics().horizontalAdvance(itemText(i)));
    const int margins = 4 * style()->pixelMetric(QStyle::PM_FocusFrameHMargin, nullptr, this) + 8;
    view()->setMinimumWidth(widest + margins + style()->pixelMetric(QStyle::PM_ScrollBarExtent, nullptr, this));
    QComboBox::showPopup();
}

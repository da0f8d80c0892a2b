#pragma once

#include <QAbstractItemView>
#include <QStyledItemDelegate>

// Rows with air between them, which fingers and eyes hit better. A selected row is coloured only while its list has the
// keyboard, and grey otherwise, so that one sees in which of several lists one is.
class AiryRows : public QStyledItemDelegate {
  public:
    explicit AiryRows(QAbstractItemView* list);
    [[nodiscard]] QSize sizeHint(const QStyleOptionViewItem& option, const QModelIndex& index) const override;
    bool eventFilter(QObject* watched, QEvent* event) override;
};

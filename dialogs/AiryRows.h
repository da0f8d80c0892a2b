#pragma once

#include <QStyledItemDelegate>

// Rows with air between them, which fingers and eyes hit better.
class AiryRows : public QStyledItemDelegate {
  public:
    using QStyledItemDelegate::QStyledItemDelegate;
    [[nodiscard]] QSize sizeHint(const QStyleOptionViewItem& option, const QModelIndex& index) const override {
        const auto size = QStyledItemDelegate::sizeHint(option, index);
        return {size.width(), size.height() + option.fontMetrics.height() / 2};
    }
};

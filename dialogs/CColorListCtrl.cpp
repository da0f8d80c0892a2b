#include "dialogs/CColorListCtrl.h"

#include <QHeaderView>
#include <QHelpEvent>
#include <QKeyEvent>
#include <QPainter>
#include <QToolTip>
#include <algorithm>

#include "dialogs/AiryRows.h"
#include "dialogs/Icons.h"
#include "dialogs/Texts.h"

namespace {

// Paler than the text, and still easily read on light and dark.
QColor Remark(const QPalette& palette) {
    auto colour = palette.color(QPalette::Text);
    colour.setAlphaF(0.7F);
    return colour;
}

}  // namespace

TextTable::TextTable(QObject* parent, QStringList headings, int rows, Text text)
    : QAbstractTableModel(parent), headings_(std::move(headings)), rows_(rows), text_(std::move(text)) {}

int TextTable::rowCount(const QModelIndex& parent) const {
    return parent.isValid() ? 0 : rows_;
}

int TextTable::columnCount(const QModelIndex& parent) const {
    return parent.isValid() ? 0 : static_cast<int>(headings_.size());
}

QVariant TextTable::data(const QModelIndex& index, int role) const {
    if (role != Qt::DisplayRole) return {};
    return text_(index.row(), index.column());
}

QVariant TextTable::headerData(int section, Qt::Orientation orientation, int role) const {
    if (orientation != Qt::Horizontal || role != Qt::DisplayRole) return {};
    return headings_.value(section);
}

CColorListCtrl::CColorListCtrl(QWidget* parent) : QTreeView(parent) {
    setRootIsDecorated(false);
    setItemsExpandable(false);
    setUniformRowHeights(true);
    setItemDelegate(new AiryRows(this));
    setAllColumnsShowFocus(true);
    setSelectionMode(QAbstractItemView::SingleSelection);
    setSelectionBehavior(QAbstractItemView::SelectRows);
    setEditTriggers(QAbstractItemView::NoEditTriggers);
    setTextElideMode(Qt::ElideMiddle);
    setTabKeyNavigation(false);
    header()->setSectionsMovable(false);
    header()->setDefaultAlignment(Qt::AlignLeft | Qt::AlignVCenter);
}

void CColorListCtrl::SetColumnWidths(const QList<int>& widths) {
    const double scale = fontMetrics().height() / 16.0;
    for (int column = 0; column < widths.size(); ++column)
        setColumnWidth(column, static_cast<int>(widths[column] * scale));
    header()->setStretchLastSection(true);
}

int CColorListCtrl::SelectedRow() const {
    const auto rows = selectionModel() != nullptr ? selectionModel()->selectedRows() : QModelIndexList();
    return rows.isEmpty() ? -1 : rows.front().row();
}

void CColorListCtrl::SelectRow(int row) {
    setCurrentIndex(model()->index(row, 0));
}

QString CColorListCtrl::ToolTipAt(const QPoint& place) const {
    const auto cell = indexAt(place);
    if (!cell.isValid()) return {};
    QStyleOptionViewItem option;
    initViewItemOption(&option);
    const int needed = itemDelegateForIndex(cell)->sizeHint(option, cell).width();
    return needed > visualRect(cell).width() ? cell.data(Qt::DisplayRole).toString() : QString();
}

bool CColorListCtrl::viewportEvent(QEvent* event) {
    if (event->type() != QEvent::ToolTip) return QTreeView::viewportEvent(event);
    const auto* const help = static_cast<QHelpEvent*>(event);
    const auto whole = dialogs::PlainToolTip(ToolTipAt(help->pos()));
    QToolTip::showText(help->globalPos(), whole.isEmpty() ? toolTip() : whole, viewport(),
                       visualRect(indexAt(help->pos())));
    return true;
}

// The focus makes the first row current without selecting it; the first arrow would pass it over, and never reach it
// where it is the only one.
void CColorListCtrl::keyPressEvent(QKeyEvent* event) {
    const int rows = model() != nullptr ? model()->rowCount() : 0;
    const bool moves = event->key() >= Qt::Key_Home && event->key() <= Qt::Key_PageDown;
    if (rows == 0 || !moves || SelectedRow() >= 0) return QTreeView::keyPressEvent(event);
    SelectRow(event->key() == Qt::Key_End ? rows - 1 : std::max(0, currentIndex().row()));
}

void CColorListCtrl::paintEvent(QPaintEvent* event) {
    QTreeView::paintEvent(event);
    if (model() == nullptr || model()->rowCount() > 0 || emptyText_.isEmpty()) return;
    QPainter painter(viewport());
    painter.setPen(Remark(palette()));
    const auto room = viewport()->rect().adjusted(16, 8, -16, -8);
    painter.drawText(room, Qt::AlignCenter | Qt::TextWordWrap, emptyText_);
}

void CColorListCtrl::drawRow(QPainter* painter, const QStyleOptionViewItem& option, const QModelIndex& index) const {
    auto row = option;
    const auto colour = coloured_ ? index.siblingAtColumn(0).data(kItemData).toUInt() : 0U;
    if (colour != 0) row.palette.setColor(QPalette::Text, QColor::fromRgb(colour));
    const bool selected = selectionModel()->isRowSelected(index.row(), index.parent());
    if (banded_ && index.row() % 2 == 0 && !selected) {
        const auto band =
            dialogs::IsDark(palette()) ? palette().color(QPalette::Base).lighter(135) : QColor(0xee, 0xee, 0xee);
        painter->fillRect(row.rect, band);
    }
    QTreeView::drawRow(painter, row, index);
}

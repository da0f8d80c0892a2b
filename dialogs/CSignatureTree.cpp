#include "dialogs/CSignatureTree.h"

#include <QHeaderView>
#include <QHelpEvent>
#include <QToolTip>
#include <QTreeWidgetItemIterator>
#include <map>

#include "dialogs/AiryRows.h"
#include "dialogs/Icons.h"
#include "dialogs/Texts.h"
#include "src/results/SignatureState.h"
#include "src/results/TreeText.h"
#include "units/Helpers.h"

namespace {

enum Role { kIndex = Qt::UserRole, kLevel };
constexpr int kText = 0, kState = 1;
constexpr int kLongestLine = 100;  // of a tool tip; what is longer goes on below

}  // namespace

CSignatureTree::CSignatureTree(const verification::SignatureEntries& entries, QWidget* parent)
    : QTreeWidget(parent), entries_(entries) {
    setHeaderHidden(true);
    setColumnCount(2);
    setUniformRowHeights(true);
    setItemDelegate(new AiryRows(this));
    setTextElideMode(Qt::ElideMiddle);
    setAllColumnsShowFocus(true);
    setRootIsDecorated(results::LevelCount(entries) > 1);
    setExpandsOnDoubleClick(false);
    header()->setStretchLastSection(false);
    header()->setSectionResizeMode(kText, QHeaderView::Stretch);
    header()->setSectionResizeMode(kState, QHeaderView::ResizeToContents);
}

void CSignatureTree::Fill(const QString& encrypted) {
    clear();
    if (!encrypted.isEmpty()) AddRemark(encrypted, "encrypted");
    if (entries_.empty())
        AddRemark(dialogs::ToQString(units::LoadStringW(339)), "unsigned");
    else if (results::LevelCount(entries_) > 1)
        FillLevels();
    else
        FillFlat();
    ColourStates();
    expandAll();
    for (QTreeWidgetItemIterator item(this); *item != nullptr; ++item) {
        if (EntryOf(*item) != nullptr) return setCurrentItem(*item);
    }
}

void CSignatureTree::FillFlat() {
    for (std::size_t i = 0; i < entries_.size(); ++i)
        AddEntry(i, nullptr);
}

void CSignatureTree::FillLevels() {
    std::map<std::uint32_t, QTreeWidgetItem*> levels;
    for (std::size_t i = 0; i < entries_.size(); ++i) {
        auto*& item = levels[entries_[i].level];
        if (item == nullptr) {
            item = AddRemark(dialogs::ToQString(results::LevelText(entries_[i].level)), "level");
            item->setData(kText, kLevel, entries_[i].level + 1);
        }
        AddEntry(i, item);
    }
}

void CSignatureTree::AddEntry(std::size_t index, QTreeWidgetItem* level) {
    const auto& entry = entries_[index];
    auto* const item = level != nullptr ? new QTreeWidgetItem(level) : new QTreeWidgetItem(this);
    item->setText(kText, dialogs::OneLine(results::TreeText(entry, level != nullptr)));
    item->setText(kState, dialogs::ToQString(results::StateWord(results::StateInList(entry))));
    item->setData(kText, kIndex, static_cast<qulonglong>(index));
    item->setData(kText, kLevel, entry.level + 1);
}

QTreeWidgetItem* CSignatureTree::AddRemark(const QString& text, const char* icon) {
    auto* const item = new QTreeWidgetItem(this, {text});
    item->setIcon(kText, dialogs::Icon(icon));
    item->setFirstColumnSpanned(true);
    return item;
}

void CSignatureTree::ColourStates() {
    for (QTreeWidgetItemIterator item(this); *item != nullptr; ++item) {
        const auto* const entry = EntryOf(*item);
        if (entry == nullptr) continue;
        (*item)->setIcon(kText, dialogs::IconOf(results::StateInList(*entry), palette()));
        (*item)->setForeground(kState, dialogs::ColourOf(results::StateInList(*entry), palette()));
    }
}

const verification::SignatureEntry* CSignatureTree::EntryOf(const QTreeWidgetItem* item) const {
    const auto index = item != nullptr ? item->data(kText, kIndex) : QVariant();
    return index.isValid() ? &entries_[index.toULongLong()] : nullptr;
}

const verification::SignatureEntry* CSignatureTree::SelectedEntry() const {
    return EntryOf(selectedItems().value(0));
}

int CSignatureTree::SelectedLevel() const {
    const auto* const item = selectedItems().value(0);
    return item != nullptr ? item->data(kText, kLevel).toInt() : 0;
}

// The icon sums up; why it is what it is stands here.
QString CSignatureTree::ToolTipAt(const QPoint& place) const {
    const auto* const item = itemAt(place);
    const auto* const entry = EntryOf(item);
    if (entry == nullptr) return item != nullptr ? dialogs::PlainToolTip(item->text(kText)) : toolTip();
    const auto lines = QStringList{item->text(kText), QStringLiteral("Подпис: ") + dialogs::OneLine(entry->signMessage),
                                   QStringLiteral("Сертификат: ") + dialogs::OneLine(entry->certMessage), toolTip()};
    QString tip;
    for (const auto& line : lines)
        tip += QStringLiteral("<p style='margin:0; white-space:%1'>%2</p>")
                   .arg(line.size() > kLongestLine ? QStringLiteral("normal") : QStringLiteral("pre"),
                        line.toHtmlEscaped());
    return tip;
}

QSize CSignatureTree::sizeHint() const {
    const int unit = fontMetrics().height();
    return {30 * unit, 12 * unit};
}

bool CSignatureTree::viewportEvent(QEvent* event) {
    if (event->type() != QEvent::ToolTip) return QTreeWidget::viewportEvent(event);
    const auto* const help = static_cast<QHelpEvent*>(event);
    QToolTip::showText(help->globalPos(), ToolTipAt(help->pos()), viewport());
    return true;
}

void CSignatureTree::changeEvent(QEvent* event) {
    QTreeWidget::changeEvent(event);
    if (event->type() == QEvent::PaletteChange) ColourStates();
}

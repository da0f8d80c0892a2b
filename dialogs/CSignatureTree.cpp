#include "dialogs/CSignatureTree.h"

#include <map>

#include "dialogs/Icons.h"
#include "dialogs/Texts.h"
#include "src/results/SignatureState.h"
#include "src/results/TreeText.h"
#include "units/Helpers.h"

namespace {

enum Role { kIndex = Qt::UserRole, kLevel };

dialogs::State ShownState(tessaly::StatusClass state) {
    switch (state) {
        case tessaly::StatusClass::valid:
            return dialogs::State::valid;
        case tessaly::StatusClass::invalid:
            return dialogs::State::invalid;
        case tessaly::StatusClass::unverified:
            break;
    }
    return dialogs::State::unverified;
}

}  // namespace

CSignatureTree::CSignatureTree(const verification::SignatureEntries& entries, QWidget* parent)
    : QTreeWidget(parent), entries_(entries) {
    setHeaderHidden(true);
    setColumnCount(2);
}

void CSignatureTree::Fill(const QString& encrypted) {
    clear();
    if (!encrypted.isEmpty()) AddRemark(encrypted, "file");
    if (entries_.empty())
        AddRemark(dialogs::ToQString(units::LoadStringW(339)), "file");
    else if (results::LevelCount(entries_) > 1)
        FillLevels();
    else
        FillFlat();
    expandAll();
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
            item = AddRemark(dialogs::ToQString(results::LevelText(entries_[i].level)), "file");
            item->setData(0, kLevel, entries_[i].level + 1);
        }
        AddEntry(i, item);
    }
}

void CSignatureTree::AddEntry(std::size_t index, QTreeWidgetItem* level) {
    const auto& entry = entries_[index];
    auto* const item = level != nullptr ? new QTreeWidgetItem(level) : new QTreeWidgetItem(this);
    const auto state = results::StateInList(entry);
    item->setText(0, dialogs::ToQString(results::TreeText(entry, level != nullptr)));
    item->setText(1, dialogs::ToQString(results::StateWord(state)));
    item->setIcon(0, dialogs::IconOf(ShownState(state), palette()));
    item->setData(0, kIndex, static_cast<qulonglong>(index));
    item->setData(0, kLevel, entry.level + 1);
}

QTreeWidgetItem* CSignatureTree::AddRemark(const QString& text, const char* icon) {
    auto* const item = new QTreeWidgetItem(this, {text});
    item->setIcon(0, dialogs::Icon(icon));
    return item;
}

const verification::SignatureEntry* CSignatureTree::SelectedEntry() const {
    const auto selected = selectedItems();
    const auto index = selected.isEmpty() ? QVariant() : selected.front()->data(0, kIndex);
    return index.isValid() ? &entries_[index.toULongLong()] : nullptr;
}

int CSignatureTree::SelectedLevel() const {
    const auto selected = selectedItems();
    return selected.isEmpty() ? 0 : selected.front()->data(0, kLevel).toInt();
}

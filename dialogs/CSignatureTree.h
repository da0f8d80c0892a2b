#pragma once

#include <QTreeWidget>

#include "src/verification/SignatureEntry.h"

// The signatures of a file with their states, below the items of their levels where there is more than one level.
class CSignatureTree : public QTreeWidget {
    Q_OBJECT
  public:
    // The entries stay the caller's and outlive the tree.
    CSignatureTree(const verification::SignatureEntries& entries, QWidget* parent);

    // Makes the items and selects the first signature. `encrypted`: the text of an encrypted file's item, before the
    // signatures; empty: none.
    void Fill(const QString& encrypted);

    // Of the selected item; null for one that is no signature.
    [[nodiscard]] const verification::SignatureEntry* SelectedEntry() const;
    // From 1; 0 for an item that belongs to no level.
    [[nodiscard]] int SelectedLevel() const;
    // What the tool tip at that place of the viewport says.
    [[nodiscard]] QString ToolTipAt(const QPoint& place) const;

    // Room for a name with time and profile, and for some signatures.
    [[nodiscard]] QSize sizeHint() const override;

  protected:
    bool viewportEvent(QEvent* event) override;
    void changeEvent(QEvent* event) override;

  private:
    void FillFlat();
    void FillLevels();
    void AddEntry(std::size_t index, QTreeWidgetItem* level);
    QTreeWidgetItem* AddRemark(const QString& text, const char* icon);
    [[nodiscard]] const verification::SignatureEntry* EntryOf(const QTreeWidgetItem* item) const;
    void ColourStates();

    const verification::SignatureEntries& entries_;
};

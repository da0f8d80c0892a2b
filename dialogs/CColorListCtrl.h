#pragma once

#include <QAbstractTableModel>
#include <QTreeView>
#include <functional>

// A table of texts that are computed when they are looked at, so that a long list opens at once.
class TextTable : public QAbstractTableModel {
    Q_OBJECT
  public:
    using Text = std::function<QString(int row, int column)>;
    TextTable(QObject* parent, QStringList headings, int rows, Text text);

    [[nodiscard]] int rowCount(const QModelIndex& parent) const override;
    [[nodiscard]] int columnCount(const QModelIndex& parent) const override;
    [[nodiscard]] QVariant data(const QModelIndex& index, int role) const override;
    [[nodiscard]] QVariant headerData(int section, Qt::Orientation orientation, int role) const override;

  private:
    QStringList headings_;
    int rows_;
    Text text_;
};

// A list with columns. Rows may have a text colour of their own and bands behind them; an empty list tells why.
class CColorListCtrl : public QTreeView {
    Q_OBJECT
  public:
    // The model's role of a row's colour, 0xRRGGBB in the first column; 0: the list's own.
    static constexpr int kItemData = Qt::UserRole;

    explicit CColorListCtrl(QWidget* parent);

    void SetTextColoured(bool on) { coloured_ = on; }
    void SetBanded(bool on) { banded_ = on; }
    void SetEmptyText(const QString& text) { emptyText_ = text; }
    // Widths in pixels of a screen with 96 DPI; the last column takes what is left.
    void SetColumnWidths(const QList<int>& widths);
    // -1: none.
    [[nodiscard]] int SelectedRow() const;
    void SelectRow(int row);
    // The whole text of the cell there, if the cell cuts it; a place in the viewport.
    [[nodiscard]] QString ToolTipAt(const QPoint& place) const;

  protected:
    bool viewportEvent(QEvent* event) override;
    void paintEvent(QPaintEvent* event) override;
    void keyPressEvent(QKeyEvent* event) override;
    void drawRow(QPainter* painter, const QStyleOptionViewItem& option, const QModelIndex& index) const override;

  private:
    bool coloured_ = false, banded_ = false;
    QString emptyText_;
};

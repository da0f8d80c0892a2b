#include "dialogs/CSignDetailsDlg.h"

#include <QEvent>
#include <QGroupBox>
#include <QHeaderView>
#include <QLabel>
#include <QPainter>
#include <QPushButton>
#include <QStyledItemDelegate>
#include <QVBoxLayout>
#include <algorithm>

#include "dialogs/CBitButton.h"
#include "dialogs/CColorListCtrl.h"
#include "dialogs/CElidedLabel.h"
#include "dialogs/Icons.h"
#include "dialogs/Texts.h"
#include "src/results/SignatureDetails.h"
#include "src/results/SignatureState.h"

namespace {

constexpr int kSigner = 225, kList = 6124, kNote = 6125;
constexpr int kListPoints = 12;
constexpr int kFirstColumn = 210, kSecondColumn = 500;

// The rows of one signature; a marked row has the colour of what is invalid, in the shade for the desktop as it is, and
// its picture.
class DetailTable : public TextTable {
  public:
    DetailTable(QWidget* list, std::vector<results::DetailRow> rows)
        : TextTable(list, {QStringLiteral("Атрибут"), QStringLiteral("Детайли")}, static_cast<int>(rows.size()),
                    [this](int row, int column) { return Text(row, column); }),
          list_(list),
          rows_(std::move(rows)) {}

    [[nodiscard]] QVariant data(const QModelIndex& index, int role) const override {
        const bool marked = rows_[static_cast<std::size_t>(index.row())].marked;
        if (marked && role == CColorListCtrl::kItemData)
            return dialogs::ColourOf(dialogs::State::invalid, list_->palette()).rgb() & RGB_MASK;
        if (marked && role == Qt::DecorationRole && index.column() == 0)
            return dialogs::IconOf(dialogs::State::invalid, list_->palette());
        return TextTable::data(index, role);
    }

  private:
    [[nodiscard]] QString Text(int row, int column) const {
        const auto& detail = rows_[static_cast<std::size_t>(row)];
        return dialogs::OneLine(column == 0 ? detail.attribute : detail.details);
    }

    QWidget* list_;
    std::vector<results::DetailRow> rows_;
};

// Long messages go on in the next line: what is wrong is to be read without a tool tip. Lines between the cells.
class WrappedCells : public QStyledItemDelegate {
  public:
    explicit WrappedCells(QTreeView* view) : QStyledItemDelegate(view), view_(view) {}

    [[nodiscard]] QSize sizeHint(const QStyleOptionViewItem& option, const QModelIndex& index) const override {
        auto cell = option;
        initStyleOption(&cell, index);
        const int width = view_->columnWidth(index.column()) - 2 * kPadding - (cell.icon.isNull() ? 0 : kIconRoom);
        const auto text = cell.fontMetrics.boundingRect(QRect(0, 0, std::max(width, 1), kTallest),
                                                        Qt::TextWordWrap | Qt::TextWrapAnywhere, cell.text);
        return {text.width() + 2 * kPadding, text.height() + cell.fontMetrics.height() / 2};
    }

    void paint(QPainter* painter, const QStyleOptionViewItem& option, const QModelIndex& index) const override {
        auto cell = option;
        cell.features |= QStyleOptionViewItem::WrapText;
        QStyledItemDelegate::paint(painter, cell, index);
        auto line = option.palette.color(QPalette::Text);
        line.setAlphaF(kFaint);
        painter->setPen(line);
        painter->drawLine(option.rect.bottomLeft(), option.rect.bottomRight());
        painter->drawLine(option.rect.topRight(), option.rect.bottomRight());
    }

  private:
    static constexpr int kPadding = 4, kIconRoom = 24, kTallest = 10'000;
    static constexpr float kFaint = 0.2F;
    QTreeView* view_;
};

}  // namespace

CSignDetailsDlg::CSignDetailsDlg(const verification::SignatureEntry& entry) {
    setWindowTitle(QStringLiteral("ТЕСАЛИ Norvik - детайли"));
    setWindowIcon(dialogs::Icon("details"));
    auto* const heading = new QLabel(QStringLiteral("Детайли за електронния подпис на:"), this);
    auto* const signer = new CElidedLabel(dialogs::OneLine(results::SignerName(entry)), this);
    signer->setObjectName(QString::number(kSigner));
    auto bold = signer->font();
    bold.setWeight(QFont::DemiBold);
    signer->setFont(bold);
    auto* const note =
        new QLabel(QStringLiteral("*TS - Timestamp - доверен печат за време\n"
                                  "*TSA - Time Stamping Authority - сървър за поставяне на доверен печат"),
                   this);
    note->setObjectName(QString::number(kNote));
    note->setTextFormat(Qt::PlainText);
    auto* const ok = MakeOkButton();

    auto* const layout = new QVBoxLayout(this);
    layout->addWidget(heading);
    layout->addWidget(signer);
    layout->addWidget(MakeList(entry), 1);
    auto* const foot = new QHBoxLayout;
    foot->addWidget(note, 1);
    foot->addWidget(ok, 0, Qt::AlignBottom);
    layout->addLayout(foot);
    const int unit = fontMetrics().height();
    resize(list_->columnWidth(0) + kSecondColumn * list_->fontMetrics().height() / 16 + 6 * unit, 36 * unit);
    list_->setFocus();
}

QGroupBox* CSignDetailsDlg::MakeList(const verification::SignatureEntry& entry) {
    auto* const box = new QGroupBox(QStringLiteral("Състояние на подписа "), this);
    list_ = new CColorListCtrl(box);
    list_->setObjectName(QString::number(kList));
    list_->setAccessibleName(QStringLiteral("Състояние на подписа"));
    list_->setUniformRowHeights(false);
    list_->setWordWrap(true);
    list_->setModel(new DetailTable(list_, results::DetailsOf(entry)));
    list_->setItemDelegate(new WrappedCells(list_));
    list_->SetTextColoured(true);
    list_->SetBanded(true);
    FitListFont();
    list_->header()->setStretchLastSection(false);
    list_->header()->setSectionResizeMode(1, QHeaderView::Stretch);
    connect(list_->header(), &QHeaderView::sectionResized, list_, [this] { list_->doItemsLayout(); });
    auto* const layout = new QVBoxLayout(box);
    layout->addWidget(list_);
    return box;
}

void CSignDetailsDlg::FitListFont() {
    auto larger = font();
    larger.setPointSizeF(std::max<qreal>(kListPoints, larger.pointSizeF()));
    list_->setFont(larger);
    const auto metrics = list_->fontMetrics();
    list_->header()->resizeSection(0, kFirstColumn * metrics.height() / 16);
    list_->setMinimumSize(20 * metrics.height(), 10 * metrics.height());
}

void CSignDetailsDlg::changeEvent(QEvent* event) {
    CTessalyDialog::changeEvent(event);
    if (event->type() == QEvent::FontChange && list_ != nullptr) FitListFont();
}

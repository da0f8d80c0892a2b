#include "dialogs/CResultsDlg.h"

#include <QHBoxLayout>
#include <QHeaderView>
#include <QLabel>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QVBoxLayout>

#include "dialogs/CSignatureTree.h"
#include "dialogs/Icons.h"
#include "dialogs/Texts.h"
#include "units/Helpers.h"

namespace {

constexpr int kOk = 1, kTree = 233, kComment = 6104;

}  // namespace

CResultsDlg::CResultsDlg(const ui::ResultsQuestion& question) {
    setWindowTitle(QStringLiteral("ТЕСАЛИ Norvik - резултати от декриптиране/проверка"));
    tree_ = new CSignatureTree(question.entries, this);
    tree_->setObjectName(QString::number(kTree));
    comment_ = new QPlainTextEdit(this);
    comment_->setObjectName(QString::number(kComment));
    comment_->setReadOnly(true);
    auto* const label = new QLabel(QStringLiteral("&Коментар:"), this);
    label->setBuddy(comment_);
    auto* const ok = MakeButton(QStringLiteral("OK"), kOk);
    ok->setDefault(true);
    connect(ok, &QPushButton::clicked, this, &QDialog::accept);
    connect(tree_, &QTreeWidget::itemSelectionChanged, this, &CResultsDlg::OnSelection);
    auto* const layout = new QVBoxLayout(this);
    layout->addWidget(tree_, 3);
    layout->addWidget(label);
    layout->addWidget(comment_, 1);
    layout->addWidget(ok, 0, Qt::AlignRight);
    resize(40 * fontMetrics().height(), 26 * fontMetrics().height());
    tree_->header()->setStretchLastSection(false);
    tree_->header()->setSectionResizeMode(0, QHeaderView::Stretch);
    tree_->header()->setSectionResizeMode(1, QHeaderView::ResizeToContents);
    tree_->Fill(question.encryptionText.empty()
                    ? QString()
                    : dialogs::ToQString(units::LoadStringW(331) + question.encryptionText));
    tree_->setFocus();
}

ui::ResultsAction CResultsDlg::Show() {
    DoModal();
    return ui::ResultsAction::none;
}

void CResultsDlg::OnSelection() {
    const auto* const entry = tree_->SelectedEntry();
    comment_->setPlainText(entry != nullptr ? dialogs::ToQString(entry->comment) : QString());
}

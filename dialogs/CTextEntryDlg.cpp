#include "dialogs/CTextEntryDlg.h"

#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QVBoxLayout>

#include "dialogs/Icons.h"
#include "platform/Secret.h"

namespace {

constexpr int kOk = 1, kCancel = 2, kEdit = 11, kPrompt = 0xFFFF;
constexpr int kWidth = 358;

}  // namespace

CTextEntryDlg::CTextEntryDlg(const QString& title, const QString& prompt, const QString& start, bool hidden)
    : edit_(new QLineEdit(this)), hidden_(hidden) {
    setWindowTitle(title);
    if (hidden) setWindowIcon(dialogs::Icon("key"));
    auto* const label = new QLabel(prompt, this);
    label->setObjectName(QString::number(kPrompt));
    label->setTextFormat(Qt::PlainText);
    label->setWordWrap(true);
    label->setBuddy(edit_);
    edit_->setObjectName(QString::number(kEdit));
    edit_->setAccessibleName(prompt);
    if (hidden) edit_->setEchoMode(QLineEdit::Password);
    edit_->setText(start);
    auto* const ok = MakeButton(QStringLiteral("ОК"), kOk);
    auto* const cancel = MakeButton(QStringLiteral("Отказ"), kCancel);
    ok->setDefault(true);
    ok->setEnabled(!start.isEmpty());

    auto* const layout = new QVBoxLayout(this);
    layout->addWidget(label);
    layout->addWidget(edit_);
    layout->addStretch();
    auto* const buttons = new QHBoxLayout;
    buttons->addStretch();
    buttons->addWidget(ok);
    buttons->addWidget(cancel);
    layout->addLayout(buttons);
    const auto titleWidth = fontMetrics().horizontalAdvance(title) + 120;
    setMinimumWidth(std::max(kWidth, std::min(titleWidth, 2 * kWidth)));

    connect(edit_, &QLineEdit::textChanged, ok, [ok](const QString& text) { ok->setEnabled(!text.isEmpty()); });
    connect(ok, &QPushButton::clicked, this, &QDialog::accept);
    connect(cancel, &QPushButton::clicked, this, &QDialog::reject);
    edit_->setFocus();
}

// The field shares its text with the copy: both go, as far as the toolkit lets us see them.
CTextEntryDlg::~CTextEntryDlg() {
    if (!hidden_) return;
    const auto shown = edit_->text();
    for (const auto* text : {&shown, &std::as_const(text_)})
        platform::Wipe(const_cast<QChar*>(text->constData()), static_cast<std::size_t>(text->size()) * sizeof(QChar));
}

int CTextEntryDlg::Show() {
    return DoModal() == QDialog::Accepted ? 1 : 2;
}

void CTextEntryDlg::done(int result) {
    text_ = edit_->text();
    CTessalyDialog::done(result);
}

#include "dialogs/CSignDlg.h"

#include <QCheckBox>
#include <QGridLayout>
#include <QGroupBox>
#include <QHeaderView>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QRadioButton>
#include <QVBoxLayout>

#include "dialogs/CBitButton.h"
#include "dialogs/CCertificateView.h"
#include "dialogs/CColorListCtrl.h"
#include "dialogs/CExtComboBox.h"
#include "dialogs/Icons.h"
#include "dialogs/MessageBox.h"
#include "dialogs/Texts.h"
#include "units/Helpers.h"

namespace {

constexpr int kSign = 6127, kCancel = 6128, kHierarchical = 236, kEqual = 237, kList = 271, kComment = 6104,
              kDetached = 143, kAuthority = 6115;
constexpr int kLongestComment = 300;

QString TableText(unsigned id) {
    return dialogs::ToQString(units::LoadStringW(id));
}

template <typename Control>
Control* Named(Control* control, int id, const QString& accessibleName) {
    control->setObjectName(QString::number(id));
    control->setAccessibleName(accessibleName);
    return control;
}

}  // namespace

CSignDlg::CSignDlg(ui::SignQuestion question) : question_(std::move(question)) {
    setWindowTitle(QStringLiteral("ТЕСАЛИ Norvik - подписване на файл"));
    setWindowIcon(dialogs::Icon("sign"));
    setWindowFlag(Qt::WindowStaysOnTopHint);
    auto* const layout = new QVBoxLayout(this);
    layout->addWidget(MakeBanner(dialogs::Icon("sign"), QStringLiteral("Подписване на файл")));
    layout->addWidget(MakeCertificates(), 1);
    layout->addWidget(MakeKind());
    layout->addLayout(MakeTimestamp());
    layout->addLayout(MakeButtons());
    OpenAt(46, 34);
    if (question_.certificates.size() == 1) list_->SelectRow(0);
    list_->setFocus();
}

std::optional<ui::SignDecision> CSignDlg::Ask() {
    if (DoModal() != QDialog::Accepted) return std::nullopt;
    return decision_;
}

QWidget* CSignDlg::MakeCertificates() {
    auto* const box = new QGroupBox(QStringLiteral("&Моля изберете X.509 сертификат  "), this);
    list_ = Named(new CColorListCtrl(box), kList, QStringLiteral("Сертификати"));
    list_->setModel(new TextTable(list_, {TableText(275), TableText(276), TableText(277)},
                                  static_cast<int>(question_.certificates.size()),
                                  [this](int row, int column) { return CertificateText(row, column); }));
    list_->SetColumnWidths({300, 220, 90});
    list_->SetEmptyText(
        QStringLiteral("Няма валиден сертификат.\nВнесете сертификат с ключа му в хранилището „MY“ или поставете "
                       "картата и опитайте отново."));
    auto* const layout = new QVBoxLayout(box);
    layout->addWidget(list_);
    connect(list_->selectionModel(), &QItemSelectionModel::selectionChanged, this, &CSignDlg::TakeSelectedRow);
    connect(list_, &QAbstractItemView::clicked, this, &CSignDlg::TakeSelectedRow);
    connect(list_, &QAbstractItemView::doubleClicked, this, &CSignDlg::ViewCertificate);
    AddRowCommand(*list_, QStringLiteral("&Преглед на сертификата"), [this] { ViewCertificate(); });
    return box;
}

// The hierarchical kind is offered by nobody; the choice is there for the eye.
QWidget* CSignDlg::MakeKind() {
    auto* const box = new QGroupBox(QStringLiteral("Тип на електронния подпис   "), this);
    const auto hierarchical = QStringLiteral("Йерархичен подпис"), equal = QStringLiteral("Равноправен подпис"),
               detached = QStringLiteral("Разкачен подпис");
    auto* const first = Named(new QRadioButton(QStringLiteral("&Йерархичен подпис"), box), kHierarchical, hierarchical);
    auto* const second = Named(new QRadioButton(QStringLiteral("&Равноправен подпис"), box), kEqual, equal);
    first->setEnabled(false);
    second->setChecked(true);
    detached_ = Named(new QCheckBox(QStringLiteral("Р&азкачен подпис"), box), kDetached, detached);
    detached_->setToolTip(
        QStringLiteral("Подписът се записва в отделен файл (.p7s) до подписания, който остава непроменен."));
    detached_->setChecked(question_.detached);
    detached_->setVisible(question_.showDetachedBox);
    auto* const layout = new QGridLayout(box);
    layout->addWidget(first, 0, 0);
    layout->addWidget(second, 0, 1);
    layout->addWidget(detached_, 0, 2);
    layout->setColumnStretch(3, 1);
    layout->setHorizontalSpacing(2 * fontMetrics().height());
    return box;
}

QLayout* CSignDlg::MakeTimestamp() {
    const auto commentName = QStringLiteral("Коментар:"),
               authorityName = QStringLiteral("Удостоверяващ сървър за време");
    auto* const comment = Named(new QLineEdit(this), kComment, commentName);
    comment->setMaxLength(kLongestComment);
    auto* const commentLabel = new QLabel(QStringLiteral("&Коментар:"), this);
    commentLabel->setBuddy(comment);
    authority_ = Named(new CExtComboBox(this), kAuthority, authorityName);
    authority_->setSizeAdjustPolicy(QComboBox::AdjustToMinimumContentsLengthWithIcon);
    authority_->addItem(QStringLiteral("Без Timestamp"));
    for (const auto& record : question_.authorities) {
        authority_->addItem(dialogs::ToQString(record.title));
        authority_->setItemData(authority_->count() - 1, dialogs::PlainToolTip(dialogs::ToQString(record.url)),
                                Qt::ToolTipRole);
        if (record.selected) authority_->setCurrentIndex(authority_->count() - 1);
    }
    auto* const authorityLabel = new QLabel(QStringLiteral("&Удостоверяващ сървър за време"), this);
    authorityLabel->setBuddy(authority_);

    auto* const layout = new QGridLayout;
    layout->addWidget(commentLabel, 0, 0);
    layout->addWidget(comment, 0, 1);
    layout->addWidget(authorityLabel, 1, 0);
    layout->addWidget(authority_, 1, 1);
    layout->setColumnStretch(1, 1);
    return layout;
}

QLayout* CSignDlg::MakeButtons() {
    auto* const sign = MakePictureButton(QStringLiteral("&Подпиши"), kSign, "sign");
    auto* const cancel = MakePictureButton(QStringLiteral("&Отказ"), kCancel, "cancel");
    sign->setDefault(true);
    connect(sign, &QPushButton::clicked, this, &CSignDlg::OnOk);
    connect(cancel, &QPushButton::clicked, this, &QDialog::reject);
    auto* const layout = new QHBoxLayout;
    layout->addStretch();
    layout->addWidget(sign);
    layout->addWidget(cancel);
    return layout;
}

QString CSignDlg::CertificateText(int row, int column) {
    auto& certificate = question_.certificates[static_cast<std::size_t>(row)];
    switch (column) {
        case 0:
            return dialogs::OneLine(certificate.GetSubjectName());
        case 1:
            return dialogs::OneLine(certificate.GetIssuerName());
        default:
            return dialogs::ToQString(certificate.GetValidTo());
    }
}

// Without a selected row what was chosen stays chosen.
void CSignDlg::TakeSelectedRow() {
    const int row = list_->SelectedRow();
    if (row >= 0) decision_.certificate = question_.certificates[static_cast<std::size_t>(row)].Context();
}

void CSignDlg::ViewCertificate() {
    const int row = list_->SelectedRow();
    if (row >= 0) CCertificateView(question_.certificates[static_cast<std::size_t>(row)].Context()).DoModal();
}

// The comment goes nowhere: signatures of this kind carry none.
void CSignDlg::OnOk() {
    if (!decision_.certificate) {
        dialogs::ShowMessageBox({units::LoadStringW(326), units::LoadStringW(285), ui::Message::Icon::warning});
        return;
    }
    decision_.detached = detached_->isChecked();
    const int index = authority_->currentIndex();
    decision_.authority.reset();
    if (index > 0) decision_.authority = question_.authorities[static_cast<std::size_t>(index) - 1];
    accept();
}

#include "dialogs/CSelectCertificateDlg.h"

#include <QHBoxLayout>
#include <QPushButton>
#include <QVBoxLayout>
#include <utility>

#include "dialogs/CBitButton.h"
#include "dialogs/CCertificateView.h"
#include "dialogs/CColorListCtrl.h"
#include "dialogs/Desktop.h"
#include "dialogs/Icons.h"
#include "dialogs/MessageBox.h"
#include "dialogs/Texts.h"

namespace {

constexpr int kOk = 1, kCancel = 2, kList = 11, kView = 12;

}  // namespace

CSelectCertificateDlg::CSelectCertificateDlg(const QString& title, std::vector<tessaly::CryptCertificate> certificates,
                                             Check check)
    : certificates_(std::move(certificates)), check_(std::move(check)) {
    setWindowTitle(title);
    setWindowIcon(dialogs::Icon("certificate"));
    MakeList();
    auto* const layout = new QVBoxLayout(this);
    layout->addWidget(list_, 1);
    layout->addLayout(MakeButtons());
    const int unit = fontMetrics().height();
    list_->setMinimumSize(30 * unit, 8 * unit);
    OpenAt(46, 25);
    list_->setFocus();
}

int CSelectCertificateDlg::Show() {
    if (DoModal() == QDialog::Accepted) return 1;
    selected_ = {};
    if (failure_) std::rethrow_exception(std::exchange(failure_, nullptr));
    return 2;
}

void CSelectCertificateDlg::MakeList() {
    list_ = new CColorListCtrl(this);
    list_->setObjectName(QString::number(kList));
    list_->setAccessibleName(QStringLiteral("Сертификати"));
    const QStringList headings{QStringLiteral("Притежател"), QStringLiteral("Организация"), QStringLiteral("Издател"),
                               QStringLiteral("Валиден до")};
    list_->setModel(new TextTable(list_, headings, static_cast<int>(certificates_.size()),
                                  [this](int row, int column) { return CertificateText(row, column); }));
    list_->SetColumnWidths({200, 200, 200, 80});
    list_->SetEmptyText(
        QStringLiteral("Няма валиден сертификат, от който да се избира.\nВнесете сертификат в хранилището или "
                       "поставете картата и опитайте отново."));
    // Arrows choose as clicks do: who uses no mouse gets at the buttons, too.
    connect(list_->selectionModel(), &QItemSelectionModel::selectionChanged, this,
            &CSelectCertificateDlg::TakeSelectedRow);
    connect(list_, &QAbstractItemView::clicked, this, &CSelectCertificateDlg::TakeSelectedRow);
    connect(list_, &QAbstractItemView::doubleClicked, this, &CSelectCertificateDlg::OnOk);
    AddRowCommand(*list_, QStringLiteral("&Преглед"), [this] { View(); });
}

QLayout* CSelectCertificateDlg::MakeButtons() {
    ok_ = MakeButton(QStringLiteral("ОК"), kOk);
    auto* const cancel = MakeButton(QStringLiteral("&Отказ"), kCancel);
    view_ = MakePictureButton(QStringLiteral("&Преглед"), kView, "view");
    ok_->setDefault(true);
    connect(ok_, &QPushButton::clicked, this, &CSelectCertificateDlg::OnOk);
    connect(cancel, &QPushButton::clicked, this, &QDialog::reject);
    connect(view_, &QPushButton::clicked, this, &CSelectCertificateDlg::View);
    TakeSelectedRow();
    auto* const layout = new QHBoxLayout;
    layout->addWidget(view_);
    layout->addStretch();
    layout->addWidget(ok_);
    layout->addWidget(cancel);
    return layout;
}

QString CSelectCertificateDlg::CertificateText(int row, int column) {
    auto& certificate = certificates_[static_cast<std::size_t>(row)];
    switch (column) {
        case 0:
            return dialogs::OneLine(certificate.GetSubjectName());
        case 1:
            return dialogs::OneLine(certificate.GetOrganization());
        case 2:
            return dialogs::OneLine(certificate.GetIssuerName());
        default:
            return dialogs::ToQString(certificate.GetValidTo());
    }
}

void CSelectCertificateDlg::TakeSelectedRow() {
    const int row = list_->SelectedRow();
    selected_ = row < 0 ? platform::CertificateContext() : certificates_[static_cast<std::size_t>(row)].Context();
    ok_->setEnabled(row >= 0);
    view_->setEnabled(row >= 0);
}

void CSelectCertificateDlg::View() {
    if (selected_) CCertificateView(selected_, QStringLiteral("Certificate Info")).DoModal();
    list_->setFocus();
}

// What the check throws must not pass through the toolkit: it goes on when the window is closed.
void CSelectCertificateDlg::OnOk() {
    if (!selected_) return reject();
    try {
        const auto answer = [this] {
            const dialogs::WaitCursor wait;
            return check_(selected_);
        }();
        if (certificates::LetsPass(answer)) return accept();
        dialogs::ShowMessageBox({answer.text, {}, ui::Message::Icon::error});
    } catch (...) {
        failure_ = std::current_exception();
    }
    reject();
}

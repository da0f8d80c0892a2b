#include "dialogs/CValidationResponseDlg.h"

#include <QHeaderView>
#include <QLabel>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QTreeWidget>
#include <QVBoxLayout>

#include "dialogs/AiryRows.h"
#include "dialogs/CBitButton.h"
#include "dialogs/Icons.h"
#include "dialogs/Texts.h"
#include "src/settings/Settings.h"
#include "units/Helpers.h"
#include "units/Registry.h"

namespace {

constexpr int kList = 217, kText = 6101;
constexpr int kColumnWidth = 140;
constexpr unsigned kIssuer = 375, kUpdated = 377, kNextUpdate = 378, kRevoked = 383;

const char* IconFor(const std::u16string& field) {
    if (field == units::LoadStringW(kIssuer)) return "certificate";
    for (const unsigned moment : {kUpdated, kNextUpdate, kRevoked})
        if (field == units::LoadStringW(moment)) return "clock";
    return "details";
}

// A distinguished name reads better with one part to a line.
std::u16string RowText(const std::u16string& field, std::u16string value) {
    if (field != units::LoadStringW(kIssuer)) return value;
    constexpr std::u16string_view between = u", ", lineEnd = u"\r\n";
    for (auto at = value.find(between); at != value.npos; at = value.find(between, at + lineEnd.size()))
        value.replace(at, between.size(), lineEnd);
    return value;
}

}  // namespace

CValidationResponseDlg::CValidationResponseDlg(Fields fields) : fields_(std::move(fields)) {
    ReadSettings();
}

void CValidationResponseDlg::ReadSettings() {
    CRegistry registry;
    registry.Open(settings::kVerificationKey, true);
    verificationMethod_ = registry.ReadDword(u"VerificationMethod");
    localCrl_ = registry.ReadString(u"LocalCRL");
    useLocalCrl_ = registry.ReadDword(u"UseLocalCRL");
    doNotUseCrlCache_ = registry.ReadDword(u"DoNotUseCRLCache");
    certFile_ = registry.ReadString(u"CERT_FILE");
    ocspUrl_ = registry.ReadString(u"OCSP_URL", settings::kDefaultOcspResponder);
}

// Most of these windows are never shown, and so need no controls.
void CValidationResponseDlg::showEvent(QShowEvent* event) {
    if (list_ == nullptr) {
        MakeControls();
        FillList();
    }
    CTessalyDialog::showEvent(event);
}

void CValidationResponseDlg::MakeControls() {
    setWindowTitle(QStringLiteral("ТЕСАЛИ Norvik - детайли за механизма на проверка"));
    setWindowIcon(dialogs::Icon("details"));
    list_ = new QTreeWidget(this);
    list_->setObjectName(QString::number(kList));
    list_->setAccessibleName(QStringLiteral("Полета на отговора"));
    list_->setRootIsDecorated(false);
    list_->setUniformRowHeights(true);
    list_->setAllColumnsShowFocus(true);
    list_->setTextElideMode(Qt::ElideMiddle);
    list_->setItemDelegate(new AiryRows(list_));
    text_ = MakeReading(kText, dialogs::ToQString(units::LoadStringW(372)), this);
    auto* const ok = MakeOkButton();
    connect(list_, &QTreeWidget::itemSelectionChanged, this, &CValidationResponseDlg::ShowRow);
    auto* const layout = new QVBoxLayout(this);
    layout->addWidget(list_, 3);
    layout->addWidget(text_, 2);
    layout->addWidget(ok, 0, Qt::AlignRight);
    OpenAt(34, 26);
    list_->setFocus();
}

void CValidationResponseDlg::FillList() {
    const double scale = fontMetrics().height() / 16.0;
    list_->setHeaderLabels({dialogs::ToQString(units::LoadStringW(371)), dialogs::ToQString(units::LoadStringW(372))});
    list_->header()->resizeSection(0, static_cast<int>(kColumnWidth * scale));
    for (const auto& [field, value] : fields_) {
        rowTexts_.push_back(RowText(field, value));
        auto* const item = new QTreeWidgetItem(list_, {dialogs::OneLine(field), dialogs::OneLine(value)});
        item->setIcon(0, dialogs::Icon(IconFor(field)));
        item->setData(0, Qt::UserRole, static_cast<qulonglong>(rowTexts_.size() - 1));
        for (int column = 0; column < 2; ++column)
            item->setToolTip(column, dialogs::PlainToolTip(item->text(column)));
    }
    list_->setCurrentItem(list_->topLevelItem(0));
}

void CValidationResponseDlg::ShowRow() {
    const auto* const item = list_->selectedItems().value(0);
    text_->setPlainText(item != nullptr ? dialogs::ToQString(rowTexts_[item->data(0, Qt::UserRole).toULongLong()])
                                        : QString());
}

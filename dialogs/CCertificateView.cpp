#include "dialogs/CCertificateView.h"

#include <QFile>
#include <QFontDatabase>
#include <QFormLayout>
#include <QHeaderView>
#include <QLabel>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QRegularExpression>
#include <QSplitter>
#include <QStandardPaths>
#include <QTabWidget>
#include <QTreeWidget>
#include <QVBoxLayout>
#include <algorithm>

#include "crypt/CryptCertificate.h"
#include "crypt/Status.h"
#include "dialogs/AiryRows.h"
#include "dialogs/CBitButton.h"
#include "dialogs/Desktop.h"
#include "dialogs/FileDialogs.h"
#include "dialogs/Icons.h"
#include "dialogs/MessageBox.h"
#include "dialogs/Texts.h"
#include "platform/Files.h"
#include "platform/Text.h"
#include "src/certificates/ExtensionText.h"
#include "src/certificates/PublicKeyText.h"
#include "src/certificates/Wording.h"
#include "toolkit/CkDateTimeW.h"
#include "units/Helpers.h"

namespace {

using dialogs::ToQString;

constexpr int kClose = 1, kExport = 12, kTabs = 20, kFields = 21, kValue = 22, kPath = 23, kPathStatus = 24;

QLabel* Value(const QString& text, QWidget* parent) {
    auto* const label = new QLabel(text, parent);
    label->setTextFormat(Qt::PlainText);
    label->setWordWrap(true);
    label->setTextInteractionFlags(Qt::TextSelectableByMouse | Qt::TextSelectableByKeyboard);
    label->setAccessibleName(text);
    return label;
}

// A name without blanks cannot break and would widen the window beyond the screen: its middle goes, and the whole is
// in the tool tip.
QLabel* NameValue(const QString& text, QWidget* parent) {
    constexpr int kLongestWord = 40;
    const auto words = text.split(QLatin1Char(' '));
    const bool breaks = std::ranges::all_of(words, [](const QString& word) { return word.size() <= kLongestWord; });
    const auto metrics = parent->fontMetrics();
    auto* const label = Value(breaks ? text : metrics.elidedText(text, Qt::ElideMiddle, 24 * metrics.height()), parent);
    label->setAccessibleName(text);
    if (!breaks) label->setToolTip(dialogs::PlainToolTip(text));
    return label;
}

// The day as the desktop writes it, with time and zone: 23.11.2026 г. 14:05:00 (UTC+02:00).
QString Moment(const std::u16string& day, platform::FILETIME moment) {
    constexpr int kTime = 11, kZone = 19;  // places in 2026-11-23T14:05:00+02:00
    toolkit::CkDateTimeW date;
    date.SetFromFileTime(true, moment);
    const auto stamp = ToQString(date.GetAsTimestamp(true));
    return QStringLiteral("%1 %2 (UTC%3)").arg(ToQString(day), stamp.mid(kTime, kZone - kTime), stamp.mid(kZone));
}

// The lines of a value, one behind the other, for a row of the list.
QString InOneLine(const QString& value) {
    constexpr int kLongestCell = 200;  // the pane below has the whole value
    static const QRegularExpression bytes(QStringLiteral("^[0-9a-f]{2}( [0-9a-f]{2})*$"));
    QString text;
    for (const auto& raw : value.split(QLatin1Char('\n'), Qt::SkipEmptyParts)) {
        if (text.size() >= kLongestCell) break;
        const auto line = raw.simplified();
        const bool goesOn = text.endsWith(QLatin1Char(':')) || bytes.match(line).hasMatch();
        text += (text.isEmpty() ? QString() : goesOn ? QStringLiteral(" ") : QStringLiteral(", ")) + line;
    }
    return text.left(kLongestCell);
}

QString Name(const platform::Bytes& der) {
    return ToQString(platform::CertNameToStrW(der, platform::CERT_X500_NAME_STR | platform::CERT_NAME_STR_REVERSE_FLAG |
                                                       platform::CERT_NAME_STR_CRLF_FLAG))
        .replace(QStringLiteral("\r\n"), QStringLiteral("\n"));
}

QString Identifier(const std::string& oid) {
    const auto name = platform::OidName(oid);
    return QString::fromStdString(name == oid ? oid : name + " (" + oid + ")");
}

QString Purposes(const platform::CertificateContext& certificate) {
    QStringList lines;
    for (const auto& extension : certificate.Info().rgExtension) {
        if (extension.pszObjId != certificates::kKeyUsageOid &&
            extension.pszObjId != certificates::kExtendedKeyUsageOid)
            continue;
        if (const auto text = certificates::ReadableExtension(extension.pszObjId, extension.Value))
            lines << ToQString(*text);
    }
    return lines.isEmpty() ? QStringLiteral("без ограничение") : lines.join(QStringLiteral("\n"));
}

// What the certificate is called, without what no file may be called.
QString FileName(const platform::CertificateContext& certificate) {
    constexpr qsizetype kLongest = 80;
    auto name = ToQString(tessaly::CryptCertificate(certificate, true).GetSubjectName()).left(kLongest);
    static const QRegularExpression unwanted(QStringLiteral("[\\\\/:*?\"<>|\\x{0}-\\x{1f}]|^[. ]+"));
    name.replace(unwanted, QStringLiteral("_"));
    return name.isEmpty() ? QStringLiteral("certificate") : name;
}

QString ExtensionTitle(const platform::CERT_EXTENSION& extension) {
    const auto name = ToQString(certificates::ExtensionName(extension.pszObjId));
    return (name.isEmpty() ? Identifier(extension.pszObjId) : name) +
           (extension.fCritical ? QStringLiteral(" (критично)") : QString());
}

}  // namespace

CCertificateView::CCertificateView(platform::CertificateContext certificate, const QString& title)
    : certificate_(std::move(certificate)) {
    setWindowTitle(title);
    setWindowIcon(dialogs::Icon("certificate"));
    {
        const dialogs::WaitCursor wait;
        platform::ChainParameters parameters;
        parameters.flags = platform::CERT_CHAIN_REVOCATION_CHECK_CHAIN;
        if (auto chain = platform::CertGetCertificateChain(certificate_, parameters)) chain_ = std::move(*chain);
    }
    fields_ = Fields();
    tabs_ = new QTabWidget(this);
    tabs_->setObjectName(QString::number(kTabs));
    tabs_->addTab(MakeGeneral(), QStringLiteral("О&бщи"));
    tabs_->addTab(MakeDetails(), QStringLiteral("&Подробности"));
    tabs_->addTab(MakePath(), QStringLiteral("П&ът на сертифициране"));
    KeepReadable();

    auto* const save = MakePictureButton(QStringLiteral("&Запис във файл..."), kExport, "save");
    auto* const close = MakeButton(QStringLiteral("ОК"), kClose);
    close->setDefault(true);
    connect(save, &QPushButton::clicked, this, &CCertificateView::Export);
    connect(close, &QPushButton::clicked, this, &QDialog::accept);
    auto* const buttons = new QHBoxLayout;
    buttons->addWidget(save);
    buttons->addStretch();
    buttons->addWidget(close);

    auto* const layout = new QVBoxLayout(this);
    layout->addWidget(tabs_, 1);
    layout->addLayout(buttons);
    OpenAt(48, 34);
}

QWidget* CCertificateView::MakeGeneral() {
    auto* const page = new QWidget(this);
    tessaly::CryptCertificate texts(certificate_, true);
    const auto status =
        chain_.elements.empty() ? tessaly::kStatusNotBuilt : platform::CertVerifyCertificateChainPolicy(chain_);
    auto* const verdict = Value(ToQString(tessaly::StatusText(status)), page);
    verdict->setObjectName(QStringLiteral("verdict"));
    auto colours = verdict->palette();
    colours.setColor(QPalette::WindowText, dialogs::ColourOf(tessaly::ClassifyStatus(status), palette()));
    verdict->setPalette(colours);
    auto* const icon = new QLabel(page);
    icon->setPixmap(
        dialogs::IconOf(tessaly::ClassifyStatus(status), palette()).pixmap(QSize(24, 24), devicePixelRatioF()));
    auto* const verdictRow = new QHBoxLayout;
    verdictRow->addWidget(icon, 0, Qt::AlignTop);
    verdictRow->addWidget(verdict, 1);

    auto* const form = new QFormLayout;
    form->setFieldGrowthPolicy(QFormLayout::AllNonFixedFieldsGrow);
    const auto add = [&](const QString& what, QLabel* value) {
        auto* const label = new QLabel(what, page);
        label->setAlignment(Qt::AlignLeft | Qt::AlignTop);  // beside the first line of the value
        form->addRow(label, value);
    };
    add(QStringLiteral("Издаден на:"), NameValue(ToQString(texts.GetSubjectName()), page));
    if (const auto organization = ToQString(texts.GetOrganization()); !organization.isEmpty())
        add(QStringLiteral("Организация:"), NameValue(organization, page));
    add(QStringLiteral("Издаден от:"), NameValue(ToQString(texts.GetIssuerName()), page));
    add(QStringLiteral("Валиден от:"), Value(ToQString(texts.GetValidFrom()), page));
    add(QStringLiteral("Валиден до:"), Value(ToQString(texts.GetValidTo()), page));
    add(QStringLiteral("Предназначение:"), Value(Purposes(certificate_), page));
    add(QStringLiteral("Сериен номер:"), Value(ToQString(texts.GetSerialNumber()), page));

    auto* const layout = new QVBoxLayout(page);
    layout->addWidget(MakeBanner(dialogs::Icon("certificate"), QStringLiteral("Сертификат")));
    layout->addLayout(form);
    layout->addSpacing(fontMetrics().height());
    layout->addLayout(verdictRow);
    layout->addStretch();
    return page;
}

std::vector<CCertificateView::Field> CCertificateView::Fields() const {
    const auto& info = certificate_.Info();
    tessaly::CryptCertificate texts(certificate_, true);
    std::vector<Field> fields{{QStringLiteral("Версия"), QStringLiteral("V%1").arg(info.dwVersion + 1)},
                              {QStringLiteral("Сериен номер"), ToQString(texts.GetSerialNumber())},
                              {QStringLiteral("Алгоритъм на подписа"), Identifier(info.SignatureAlgorithm)},
                              {QStringLiteral("Издател"), Name(info.Issuer)},
                              {QStringLiteral("Валиден от"), Moment(texts.GetValidFrom(), info.NotBefore)},
                              {QStringLiteral("Валиден до"), Moment(texts.GetValidTo(), info.NotAfter)},
                              {QStringLiteral("Притежател"), Name(info.Subject)},
                              {QStringLiteral("Публичен ключ"),
                               ToQString(certificates::PublicKeyText(info.SubjectPublicKeyInfo,
                                                                     platform::CertGetPublicKeyLength(certificate_)))}};
    for (const auto& extension : info.rgExtension)
        fields.push_back(
            {ExtensionTitle(extension), ToQString(certificates::ExtensionText(extension.pszObjId, extension.Value))});
    fields.push_back({QStringLiteral("Отпечатък SHA-1"), ToQString(texts.GetThumbprint())});
    fields.push_back({QStringLiteral("Отпечатък SHA-256"), ToQString(texts.GetThumbprintSha256())});
    return fields;
}

QWidget* CCertificateView::MakeDetails() {
    auto* const page = new QWidget(this);
    auto* const splitter = new QSplitter(Qt::Vertical, page);
    splitter->setChildrenCollapsible(false);
    auto* const list = new QTreeWidget(splitter);
    list->setObjectName(QString::number(kFields));
    list->setAccessibleName(QStringLiteral("Полета"));
    list->setRootIsDecorated(false);
    list->setUniformRowHeights(true);
    list->setItemDelegate(new AiryRows(list));
    list->setHeaderLabels({QStringLiteral("Поле"), QStringLiteral("Стойност")});
    list->setTextElideMode(Qt::ElideMiddle);
    for (const auto& field : fields_)
        new QTreeWidgetItem(list, {field.name, InOneLine(field.value)});
    list->header()->resizeSection(0, 20 * fontMetrics().height());
    auto* const value = MakeReading(kValue, QStringLiteral("Стойност на полето"), splitter);
    value->setFont(QFontDatabase::systemFont(QFontDatabase::FixedFont));
    connect(list, &QTreeWidget::currentItemChanged, value, [this, list, value](QTreeWidgetItem* item) {
        const int row = list->indexOfTopLevelItem(item);
        value->setPlainText(row < 0 ? QString() : fields_[static_cast<std::size_t>(row)].value);
    });
    for (int row = 0; row < list->topLevelItemCount(); ++row)
        list->topLevelItem(row)->setToolTip(0, dialogs::PlainToolTip(list->topLevelItem(row)->text(0)));
    list->setCurrentItem(list->topLevelItem(0));
    splitter->setStretchFactor(0, 3);
    splitter->setStretchFactor(1, 2);
    auto* const layout = new QVBoxLayout(page);
    layout->addWidget(splitter);
    return page;
}

// From the root down to the certificate, as people draw it.
QWidget* CCertificateView::MakePath() {
    auto* const page = new QWidget(this);
    auto* const tree = new QTreeWidget(page);
    tree->setObjectName(QString::number(kPath));
    tree->setAccessibleName(QStringLiteral("Път на сертифициране"));
    tree->setHeaderHidden(true);
    tree->setItemDelegate(new AiryRows(tree));
    auto* const status = Value(QString(), page);
    status->setObjectName(QString::number(kPathStatus));
    status->setMinimumHeight(3 * fontMetrics().height());
    status->setAlignment(Qt::AlignLeft | Qt::AlignTop);

    QTreeWidgetItem* above = nullptr;
    for (int depth = static_cast<int>(chain_.elements.size()) - 1; depth >= 0; --depth) {
        const auto& element = chain_.elements[static_cast<std::size_t>(depth)];
        const auto verdict = platform::CertVerifyCertificateChainPolicy({element.dwErrorStatus, {element}});
        tessaly::CryptCertificate texts(element.certificate, true);
        auto* const item = above != nullptr ? new QTreeWidgetItem(above) : new QTreeWidgetItem(tree);
        item->setText(0, dialogs::OneLine(texts.GetSubjectName()));
        item->setIcon(0, dialogs::IconOf(tessaly::ClassifyStatus(verdict), palette()));
        item->setData(0, Qt::UserRole, depth);
        item->setData(0, Qt::UserRole + 1, ToQString(tessaly::StatusText(verdict)));
        item->setToolTip(0, dialogs::PlainToolTip(item->text(0)));
        above = item;
    }
    tree->expandAll();
    connect(tree, &QTreeWidget::currentItemChanged, status, [status](QTreeWidgetItem* item) {
        status->setText(item != nullptr ? item->data(0, Qt::UserRole + 1).toString() : QString());
    });
    connect(tree, &QTreeWidget::itemActivated, this,
            [this](QTreeWidgetItem* item) { ShowElement(item->data(0, Qt::UserRole).toInt()); });
    if (above != nullptr) tree->setCurrentItem(above);

    auto* const layout = new QVBoxLayout(page);
    layout->addWidget(tree, 1);
    layout->addWidget(new QLabel(QStringLiteral("Състояние на сертификата:"), page));
    layout->addWidget(status);
    return page;
}

// The certificate itself is open already.
void CCertificateView::ShowElement(int depth) {
    if (depth > 0) CCertificateView(chain_.elements[static_cast<std::size_t>(depth)].certificate).DoModal();
}

void CCertificateView::Export() {
    const std::filesystem::path folder =
        QFile::encodeName(QStandardPaths::writableLocation(QStandardPaths::DocumentsLocation)).toStdString();
    const auto file = dialogs::AskSaveFile(QStringLiteral("Запис на сертификата"),
                                           folder / QFile::encodeName(FileName(certificate_)).toStdString(),
                                           {QStringLiteral("DER (*.cer)"), QStringLiteral("PEM (*.pem)")});
    if (file) WriteTo(*file);
}

void CCertificateView::WriteTo(const std::filesystem::path& file) const {
    const auto pem = platform::PemOfCertificate(certificate_.Encoded());
    const auto ending = QString::fromStdString(file.extension().string());
    const bool asPem = ending.compare(QStringLiteral(".pem"), Qt::CaseInsensitive) == 0;
    if (platform::WriteWholeFile(file, asPem ? platform::AsBytes(pem) : certificate_.Encoded())) return;
    const auto why = tessaly::FormatErrorText(platform::GetLastError());
    dialogs::ShowMessageBox(
        {platform::ToWide(file.string()) + u"\n" + why, units::LoadStringW(288), ui::Message::Icon::error});
}

// In heights of a line of the font that the window has, which the person may enlarge.
void CCertificateView::KeepReadable() {
    const int unit = fontMetrics().height();
    tabs_->setMinimumSize(32 * unit, 20 * unit);
}

void CCertificateView::changeEvent(QEvent* event) {
    CTessalyDialog::changeEvent(event);
    if (event->type() == QEvent::FontChange && tabs_ != nullptr) KeepReadable();
}

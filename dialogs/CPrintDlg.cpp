#include "dialogs/CPrintDlg.h"

#include <QFormLayout>
#include <QFrame>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QPrintDialog>
#include <QPrinter>
#include <QVBoxLayout>
#include <stdexcept>

#include "dialogs/CBitButton.h"
#include "dialogs/Desktop.h"
#include "dialogs/Icons.h"
#include "dialogs/MessageBox.h"
#include "dialogs/ReportPage.h"
#include "dialogs/Texts.h"
#include "platform/Files.h"
#include "platform/Text.h"
#include "src/Norvik.h"
#include "src/settings/PrintTexts.h"
#include "units/Helpers.h"

namespace {

constexpr int kCancel = 2, kPrint = 275, kHeader = 277, kFooter = 278, kNotes = 0xFFFF;
constexpr int kWidth = 480;

void WritePdf(const QPrinter& printer, const results::ReportContent& report) {
    const auto document = dialogs::ReportPdf(printer.pageLayout(), report);
    const std::filesystem::path file = printer.outputFileName().toStdString();
    if (!document.empty() && platform::WriteWholeFile(file, document)) return;
    const auto reason = document.empty() ? std::u16string() : platform::FormatMessageW(platform::GetLastError());
    throw std::runtime_error("Printer wouldn't initalize " + file.string() + " " + platform::ToUtf8(reason));
}

}  // namespace

CPrintDlg::CPrintDlg(const verification::SignatureEntries& entries, const std::u16string& fileName, QWidget* parent)
    : report_(results::MakeReport(entries, fileName)), header_(new QLineEdit(this)), footer_(new QLineEdit(this)) {
    if (parent != nullptr) setParent(parent, windowFlags());
    setWindowTitle(QStringLiteral("ТЕСАЛИ Norvik - отпечатване на справка"));
    setWindowIcon(dialogs::Icon("print"));
    auto* const layout = new QVBoxLayout(this);
    layout->addWidget(MakeBanner(dialogs::Icon("print"), QStringLiteral("Отпечатване на справка")));
    layout->addWidget(MakeTexts());
    layout->addWidget(MakeNotes());
    layout->addStretch();
    layout->addLayout(MakeButtons());
    setMinimumWidth(std::max(kWidth, 32 * fontMetrics().height()));
    header_->setFocus();
}

QWidget* CPrintDlg::MakeTexts() {
    auto* const texts = new QWidget(this);
    auto* const form = new QFormLayout(texts);
    form->setContentsMargins(0, 0, 0, 0);
    form->setRowWrapPolicy(QFormLayout::WrapAllRows);
    const auto add = [&](QLineEdit* edit, int id, const QString& label, const QString& name, std::u16string_view text) {
        edit->setObjectName(QString::number(id));
        edit->setAccessibleName(name);
        edit->setText(dialogs::ToQString(text));
        form->addRow(label, edit);
    };
    add(header_, kHeader, QStringLiteral("&Горен колонтитул (header) :"), QStringLiteral("Горен колонтитул (header)"),
        report_.header);
    add(footer_, kFooter, QStringLiteral("&Долен колонтитул (footer) :"), QStringLiteral("Долен колонтитул (footer)"),
        report_.footer);
    return texts;
}

QWidget* CPrintDlg::MakeNotes() {
    auto* const notes = new QLabel(
        QStringLiteral("Справката е на една страница и съдържа името на файла и по един ред за всеки подпис: ниво, "
                       "подписал, дата на подписване и състояние.\n"
                       "В долния колонтитул %d се заменя с номера на страницата."),
        this);
    notes->setObjectName(QString::number(kNotes));
    notes->setTextFormat(Qt::PlainText);
    notes->setWordWrap(true);
    return notes;
}

QLayout* CPrintDlg::MakeButtons() {
    auto* const print = new CBitButton(QStringLiteral("О&тпечатай"), this);
    auto* const cancel = new CBitButton(QStringLiteral("&Отказ"), this);
    print->setObjectName(QString::number(kPrint));
    print->SetImage("print");
    print->setDefault(true);
    cancel->setObjectName(QString::number(kCancel));
    cancel->SetImage("cancel");
    connect(print, &QPushButton::clicked, this, &CPrintDlg::OnPrint);
    connect(cancel, &QPushButton::clicked, this, &QDialog::reject);
    auto* const layout = new QHBoxLayout;
    layout->addStretch();
    layout->addWidget(print);
    layout->addWidget(cancel);
    return layout;
}

// The texts are kept before anything is printed: who gives the printer up finds them again.
void CPrintDlg::OnPrint() {
    report_.header = dialogs::FromQString(header_->text());
    report_.footer = dialogs::FromQString(footer_->text());
    settings::StorePrintTexts({report_.header, report_.footer});
    QPrinter printer(QPrinter::HighResolution);
    if (!AskPrinter(printer)) return;
    try {
        Print(printer);
        accept();
    } catch (const std::runtime_error& error) {
        LogError(platform::ToWide(error.what()));
        dialogs::ShowMessageBox({units::LoadStringW(306), units::LoadStringW(288), ui::Message::Icon::error});
    }
}

// The file that the toolkit offers among the printers is a PDF document, which is wanted; there is no box for raw data
// of a printer that could be hidden.
bool CPrintDlg::AskPrinter(QPrinter& printer) {
    printer.setDocName(dialogs::ReportDocumentName());
    printer.setCreator(QStringLiteral("Norvik"));
    printer.setFullPage(true);
    printer.setResolution(dialogs::kReportResolution);
    QPrintDialog dialog(&printer, this);
    dialog.setOption(QAbstractPrintDialog::PrintToFile, true);
    dialog.setOption(QAbstractPrintDialog::PrintSelection, false);
    dialog.setOption(QAbstractPrintDialog::PrintPageRange, false);
    dialog.setOption(QAbstractPrintDialog::PrintCurrentPage, false);
    // The report has one page, no part of which can be chosen; hidden, the box would come back with the next printer.
    if (auto* const range = dialog.findChild<QWidget*>(QStringLiteral("gbPrintRange"))) {
        range->setEnabled(false);
        range->setFixedSize(0, 0);
    }
    return dialogs::RunDialog(dialog) == QDialog::Accepted;
}

void CPrintDlg::Print(QPrinter& printer) const {
    const dialogs::WaitCursor wait;
    if (printer.outputFormat() == QPrinter::PdfFormat) return WritePdf(printer, report_);
    if (!printer.isValid()) throw std::runtime_error("Error obtaining printer DC");
    if (!dialogs::PrintReport(printer, report_)) throw std::runtime_error("Printer wouldn't initalize");
}

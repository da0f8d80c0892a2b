#include "dialogs/QtInterface.h"

#include <QApplication>

#include "dialogs/CAboutDlg.h"
#include "dialogs/CProgressDlg.h"
#include "dialogs/CResultsDlg.h"
#include "dialogs/CSelectCertificateDlg.h"
#include "dialogs/CSignDlg.h"
#include "dialogs/CTextEntryDlg.h"
#include "dialogs/Desktop.h"
#include "dialogs/FileDialogs.h"
#include "dialogs/MessageBox.h"
#include "dialogs/ReportPage.h"
#include "dialogs/Texts.h"
#include "src/ui/PinText.h"

namespace dialogs {
namespace {

class ShownProgress : public ui::Progress {
  public:
    explicit ShownProgress(const QString& file) : window_(file) { window_.show(); }
    // What was clicked and typed meanwhile is lost on this window, instead of being done by the next one.
    ~ShownProgress() override { QApplication::processEvents(); }
    ShownProgress(const ShownProgress&) = delete;
    ShownProgress& operator=(const ShownProgress&) = delete;
    void Update(std::uint64_t done, std::uint64_t total) override { window_.Update(done, total); }

  private:
    CProgressDlg window_;
};

std::optional<platform::Secret> Enter(const QString& title, const QString& prompt, const QString& start, bool hidden) {
    CTextEntryDlg dialog(title, prompt, start, hidden);
    if (dialog.Show() != 1) return std::nullopt;
    auto utf8 = dialog.Text().toUtf8();
    platform::Secret answer(std::string_view(utf8.constData(), static_cast<std::size_t>(utf8.size())));
    platform::Wipe(utf8.data(), static_cast<std::size_t>(utf8.size()));
    return answer;
}

}  // namespace

void QtInterface::ShowMessage(const ui::Message& message) {
    RequireDesktop();
    ShowMessageBox(message);
}

std::optional<platform::Secret> QtInterface::AskText(const ui::TextQuestion& question) {
    RequireDesktop();
    return Enter(ToQString(question.title), ToQString(question.prompt), ToQString(question.start), question.hidden);
}

std::optional<platform::Secret> QtInterface::AskPin(const platform::PinRequest& request) {
    RequireDesktop();
    return Enter(QStringLiteral("Norvik"), QString::fromStdString(ui::PinQuestion(request)), {}, true);
}

std::optional<ui::SignDecision> QtInterface::AskSign(ui::SignQuestion question) {
    RequireDesktop();
    return CSignDlg(std::move(question)).Ask();
}

platform::CertificateContext QtInterface::AskCertificate(ui::CertificateQuestion question) {
    RequireDesktop();
    CSelectCertificateDlg dialog(ToQString(question.title), certificates::OfferedCertificates(question.certificates));
    return dialog.Show() == 1 ? dialog.Selected() : platform::CertificateContext();
}

std::optional<std::filesystem::path> QtInterface::AskOpenFile(const ui::FileQuestion& question) {
    RequireDesktop();
    return dialogs::AskOpenFile(ToQString(question.title));
}

ui::ResultsAction QtInterface::ShowResults(const ui::ResultsQuestion& question) {
    RequireDesktop();
    return CResultsDlg(question).Show();
}

platform::Bytes QtInterface::DrawReport(const ui::ReportOrder& order) {
    RequireDrawing();
    const auto paper = order.paper == ui::ReportOrder::Paper::letter ? QPageSize::Letter : QPageSize::A4;
    auto document = ReportPdf(ReportLayout(paper), results::MakeReport(order.entries, order.fileName));
    if (document.empty()) throw std::runtime_error("Справката не може да се създаде като PDF.");
    return document;
}

void QtInterface::ShowAbout() {
    RequireDesktop();
    CAboutDlg().DoModal();
}

std::unique_ptr<ui::Progress> QtInterface::ShowProgress(const std::u16string& file) {
    RequireDesktop();
    return std::make_unique<ShownProgress>(ToQString(file));
}

}  // namespace dialogs

extern "C" ui::UserInterface* NorvikMakeWindows();
ui::UserInterface* NorvikMakeWindows() {
    return new dialogs::QtInterface;
}

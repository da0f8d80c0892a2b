#include <QPrintDialog>

#include "dialogs/CPrintDlg.h"
#include "platform/Files.h"
#include "src/settings/PrintTexts.h"
#include "src/settings/Settings.h"
#include "tests/dialogs/DialogFixture.h"
#include "tests/dialogs/PdfPage.h"

namespace {

using namespace tests;

class PrintDialog : public DialogFixture {
  protected:
    PrintDialog() {
        profile_.Set("CUPS_SERVER", "/nowhere");  // no printer of the machine that runs the test
        entries_.push_back(GoodEntry("Мария Георгиева"));
    }
    int Show(const std::function<void(QDialog&)>& step, const std::u16string& file = u"a.p7m") {
        WhenShown(step);
        return CPrintDlg(entries_, file).DoModal();
    }
    static std::u16string Stored(std::u16string_view name) {
        return settings::StoredText(*settings::FindSetting(u"Print", name)).value_or(u"(none)");
    }
    // Prints by the toolkit's window, with the file for a PDF document as the printer.
    static void PrintTo(QDialog& shown, const std::string& file) {
        Opened<QPrintDialog>([&] { Click(shown, "275"); },
                             [&](QPrintDialog& window) {
                                 auto& printers = Control<QComboBox>(window, "printers");
                                 printers.setCurrentIndex(printers.count() - 1);
                                 Control<QLineEdit>(window, "filename").setText(QString::fromStdString(file));
                                 window.findChild<QDialogButtonBox*>()->button(QDialogButtonBox::Ok)->click();
                             });
    }
    verification::SignatureEntries entries_;
};

TEST_F(PrintDialog, CancelKeepsNothing) {
    const int result = Show([](QDialog& shown) {
        EXPECT_TRUE(Control(shown, "277").hasFocus());
        Photograph(shown, "print");
        Type(Control(shown, "277"), u"забравено"_s);
        Click(shown, "2");
    });
    EXPECT_EQ(result, QDialog::Rejected);
    EXPECT_EQ(Stored(u"Header") + Stored(u"Footer"), u"(none)(none)");
}

TEST_F(PrintDialog, KeepsTheTextsAlsoWhereThePrinterIsGivenUp) {
    settings::StorePrintTexts({u"стар", u"Стр. %d"});
    const int result = Show([](QDialog& shown) {
        EXPECT_EQ(Text(shown, "277") + Text(shown, "278"), "старСтр. %d");
        Control<QLineEdit>(shown, "277").setText(u"Отдел „Сделки“"_s);
        Control<QLineEdit>(shown, "278").clear();
        Opened<QPrintDialog>([&] { Click(shown, "275"); },
                             [](QPrintDialog& window) {
                                 for (const auto option : {QPrintDialog::PrintSelection, QPrintDialog::PrintPageRange,
                                                           QPrintDialog::PrintCurrentPage})
                                     EXPECT_FALSE(window.testOption(option));
                                 EXPECT_TRUE(Control(window, "gbPrintRange").size().isEmpty())
                                     << "a report has one page";
                                 Photograph(window, "print-toolkit");
                                 window.reject();
                             });
        EXPECT_TRUE(shown.isVisible()) << "another printer can be chosen";
        Click(shown, "2");
    });
    EXPECT_EQ(result, QDialog::Rejected);
    EXPECT_EQ(Stored(u"Header"), u"Отдел „Сделки“");
    EXPECT_EQ(Stored(u"Footer"), u"");
}

TEST_F(PrintDialog, WritesTheReportAsPdf) {
    const auto file = (profile_.Folder() / "справка.pdf").string();
    const auto print = [&](QDialog& shown) {
        Control<QLineEdit>(shown, "277").setText(u"Горе"_s);
        PrintTo(shown, file);
        EXPECT_FALSE(shown.isVisible());
    };
    EXPECT_EQ(Show(print, u"договор.p7m"), QDialog::Accepted);
    const auto page = ReadPdf(platform::ReadWholeFile(file).value_or(platform::Bytes()), "report-window");
    EXPECT_EQ(page.pages, 1);
    EXPECT_THAT(page.Lines(), testing::IsSupersetOf({"Горе", "1 Мария Георгиева n/a Валиден", "Страница 1",
                                                     "Детайли за електронните подписи на файл 'договор.p7m'"}));
}

// A device that takes no bytes stands for a disk that is full.
TEST_F(PrintDialog, TellsOfAFailureAndStaysOpen) {
    const auto print = [](QDialog& shown) {
        std::string said;
        const auto read = [&](QDialog& failure) {
            said = failure.windowTitle().toStdString() + ": " + Text(failure, "qt_msgbox_label");
            Click(failure, "1");
        };
        Opened<QMessageBox>([&] { PrintTo(shown, "/dev/full"); },
                            [&](QMessageBox& overwrite) {
                                overwrite.button(QMessageBox::Yes)->click();
                                // The toolkit's window is on its way out still.
                                QTimer::singleShot(200, qApp, [&] { WhenShown(read); });
                            });
        EXPECT_EQ(said,
                  "Грешка: Грешка при принтиране!\nЗа повече информация относно грешката, моля погледнете "
                  "'Norvik.log'");
        EXPECT_TRUE(shown.isVisible());
        shown.reject();
    };
    EXPECT_EQ(Show(print), QDialog::Rejected);
    EXPECT_THAT(ReadFile(profile_.Folder() / "tmp/Norvik/Norvik.log"), HasSubstr("Printer wouldn't initalize"));
}

}  // namespace

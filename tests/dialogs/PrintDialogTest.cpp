#include <gmock/gmock.h>

#include <QComboBox>
#include <QDialogButtonBox>
#include <QLabel>
#include <QLineEdit>
#include <QMessageBox>
#include <QPrintDialog>
#include <QPushButton>
#include <QTimer>

#include "dialogs/CPrintDlg.h"
#include "platform/Files.h"
#include "platform/Registry.h"
#include "platform/Text.h"
#include "src/settings/PrintTexts.h"
#include "src/settings/Settings.h"
#include "tests/dialogs/DialogFixture.h"
#include "tests/dialogs/PdfPage.h"

namespace {

using testing::HasSubstr;

class PrintDialog : public tests::DialogFixture {
  protected:
    PrintDialog() { profile_.Set("CUPS_SERVER", "/nowhere"); }  // no printer of the machine that runs the test

    static verification::SignatureEntries Entries() {
        verification::SignatureEntries entries;
        entries.push_back(GoodEntry("Мария Георгиева"));
        return entries;
    }
    static std::u16string Stored(std::u16string_view name) {
        return settings::StoredText(*settings::FindSetting(u"Print", name)).value_or(u"(none)");
    }
    // The toolkit's window, with the file for a PDF document as the printer.
    static void ChooseFile(QDialog& window, const std::string& file) {
        auto& printers = Control<QComboBox>(window, "printers");
        printers.setCurrentIndex(printers.count() - 1);
        Control<QLineEdit>(window, "filename").setText(QString::fromStdString(file));
    }
    static void Agree(QDialog& window) {
        for (auto* const button : window.findChildren<QPushButton*>())
            if (button->isDefault()) return button->click();
        throw std::runtime_error("no default button");
    }
};

TEST_F(PrintDialog, CancelKeepsNothing) {
    WhenShown([](QDialog& shown) {
        EXPECT_TRUE(Control<QLineEdit>(shown, "277").hasFocus());
        Photograph(shown, "print");
        Type(Control<QLineEdit>(shown, "277"), QStringLiteral("забравено"));
        Control<QPushButton>(shown, "2").click();
    });
    EXPECT_EQ(CPrintDlg(Entries(), u"a.p7m").DoModal(), QDialog::Rejected);
    EXPECT_EQ(Stored(u"Header") + Stored(u"Footer"), u"(none)(none)");
}

TEST_F(PrintDialog, KeepsTheTextsAlsoWhereThePrinterIsGivenUp) {
    settings::StorePrintTexts({u"стар", u"Стр. %d"});
    WhenShown([](QDialog& shown) {
        EXPECT_EQ(Control<QLineEdit>(shown, "277").text(), QStringLiteral("стар"));
        EXPECT_EQ(Control<QLineEdit>(shown, "278").text(), QStringLiteral("Стр. %d"));
        Control<QLineEdit>(shown, "277").setText(QStringLiteral("Отдел „Сделки“"));
        Control<QLineEdit>(shown, "278").clear();
        WhenShown([](QDialog& window) {
            const auto& dialog = dynamic_cast<QPrintDialog&>(window);
            for (const auto option :
                 {QPrintDialog::PrintSelection, QPrintDialog::PrintPageRange, QPrintDialog::PrintCurrentPage})
                EXPECT_FALSE(dialog.testOption(option));
            EXPECT_TRUE(Control<QWidget>(window, "gbPrintRange").size().isEmpty()) << "a report has one page";
            Photograph(window, "print-toolkit");
            window.reject();
        });
        Control<QPushButton>(shown, "275").click();
        EXPECT_TRUE(shown.isVisible()) << "another printer can be chosen";
        Control<QPushButton>(shown, "2").click();
    });
    EXPECT_EQ(CPrintDlg(Entries(), u"a.p7m").DoModal(), QDialog::Rejected);
    EXPECT_EQ(Stored(u"Header"), u"Отдел „Сделки“");
    EXPECT_EQ(Stored(u"Footer"), u"");
}

TEST_F(PrintDialog, WritesTheReportAsPdf) {
    const auto file = (profile_.Folder() / "справка.pdf").string();
    WhenShown([&](QDialog& shown) {
        Control<QLineEdit>(shown, "277").setText(QStringLiteral("Горе"));
        WhenShown([&](QDialog& window) {
            ChooseFile(window, file);
            Agree(window);
        });
        Control<QPushButton>(shown, "275").click();
        EXPECT_FALSE(shown.isVisible());
    });
    EXPECT_EQ(CPrintDlg(Entries(), u"договор.p7m").DoModal(), QDialog::Accepted);
    const auto page = tests::ReadPdf(platform::ReadWholeFile(file).value_or(platform::Bytes()), "report-window");
    EXPECT_EQ(page.pages, 1);
    EXPECT_THAT(page.Lines(), testing::IsSupersetOf({"Горе", "1 Мария Георгиева n/a Валиден", "Страница 1",
                                                     "Детайли за електронните подписи на файл 'договор.p7m'"}));
}

// A device that takes no bytes stands for a disk that is full.
TEST_F(PrintDialog, TellsOfAFailureAndStaysOpen) {
    bool told = false;
    const auto readFailure = [&](QDialog& failure) {
        told = true;
        EXPECT_EQ(failure.windowTitle(), QStringLiteral("Грешка"));
        EXPECT_EQ(Control<QLabel>(failure, "qt_msgbox_label").text(),
                  QStringLiteral("Грешка при принтиране!\nЗа повече информация относно грешката, моля погледнете "
                                 "'Norvik.log'"));
        Control<QPushButton>(failure, "1").click();
    };
    WhenShown([&](QDialog& shown) {
        WhenShown([&](QDialog& window) {
            ChooseFile(window, "/dev/full");
            WhenShown([&](QDialog& overwrite) {
                dynamic_cast<QMessageBox&>(overwrite).button(QMessageBox::Yes)->click();
                // The toolkit's window is on its way out still.
                QTimer::singleShot(200, qApp, [&] { WhenShown(readFailure); });
            });
            Agree(window);
        });
        Control<QPushButton>(shown, "275").click();
        EXPECT_TRUE(shown.isVisible());
        shown.reject();
    });
    EXPECT_EQ(CPrintDlg(Entries(), u"a.p7m").DoModal(), QDialog::Rejected);
    EXPECT_TRUE(told);
    EXPECT_THAT(tests::ReadFile(profile_.Folder() / "tmp/Norvik/Norvik.log"), HasSubstr("Printer wouldn't initalize"));
}

}  // namespace

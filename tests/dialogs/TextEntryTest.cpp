#include <QLabel>
#include <QLineEdit>
#include <QPushButton>

#include "dialogs/CTextEntryDlg.h"
#include "dialogs/QtInterface.h"
#include "tests/dialogs/DialogFixture.h"

namespace {

class TextEntry : public tests::DialogFixture {};

TEST_F(TextEntry, LetsNoEmptyTextThroughAndGivesWhatWasTyped) {
    CTextEntryDlg dialog(QStringLiteral("Отваряне на ключове.pfx ..."), QStringLiteral("Въведете парола"), {}, true);
    WhenShown([](QDialog& shown) {
        auto& edit = Control<QLineEdit>(shown, "11");
        auto& ok = Control<QPushButton>(shown, "1");
        EXPECT_TRUE(edit.hasFocus());
        EXPECT_EQ(edit.echoMode(), QLineEdit::Password);
        EXPECT_EQ(Control<QLabel>(shown, "65535").text(), QStringLiteral("Въведете парола"));
        EXPECT_FALSE(ok.isEnabled());
        QTest::keyClick(&edit, Qt::Key_Return);
        EXPECT_TRUE(shown.isVisible()) << "Enter without a text";
        Type(edit, QStringLiteral("тайна"));
        EXPECT_TRUE(ok.isEnabled());
        Photograph(shown, "text-entry-password");
        QTest::keyClick(&edit, Qt::Key_Return);
    });
    EXPECT_EQ(dialog.Show(), 1);
    EXPECT_EQ(dialog.Text(), QStringLiteral("тайна"));
}

TEST_F(TextEntry, KeepsTheTextAlsoWhereItIsCancelled) {
    CTextEntryDlg dialog(QStringLiteral("Име"), QStringLiteral("Име на файла"), QStringLiteral("начало"), false);
    WhenShown([](QDialog& shown) {
        EXPECT_TRUE(Control<QPushButton>(shown, "1").isEnabled());
        QTest::keyClick(&Control<QLineEdit>(shown, "11"), Qt::Key_End);
        Type(Control<QLineEdit>(shown, "11"), QStringLiteral("!"));
        QTest::keyClick(&shown, Qt::Key_Escape);
    });
    EXPECT_EQ(dialog.Show(), 2);
    EXPECT_EQ(dialog.Text(), QStringLiteral("начало!"));
}

TEST_F(TextEntry, AsksForAPinWithTheWarningBeforeTheLastTry) {
    WhenShown([](QDialog& shown) {
        EXPECT_TRUE(Control<QLabel>(shown, "65535").text().contains(QStringLiteral("последният опит")));
        Photograph(shown, "pin-last-try");
        Type(Control<QLineEdit>(shown, "11"), QStringLiteral("1234"));
        Control<QPushButton>(shown, "1").click();
    });
    dialogs::QtInterface windows;
    const auto pin = windows.AskPin({.subject = u"Карта на Иван Петров", .lastTry = true});
    ASSERT_TRUE(pin);
    EXPECT_EQ(pin->Text(), "1234");
}

}  // namespace

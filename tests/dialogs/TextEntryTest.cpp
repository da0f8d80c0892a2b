#include "dialogs/CTextEntryDlg.h"
#include "dialogs/QtInterface.h"
#include "tests/dialogs/DialogFixture.h"

namespace {

using namespace tests;

class TextEntry : public DialogFixture {};

TEST_F(TextEntry, LetsNoEmptyTextThroughAndGivesWhatWasTyped) {
    CTextEntryDlg dialog(u"Отваряне на ключове.pfx ..."_s, u"Въведете парола"_s, {}, true);
    WhenShown([](QDialog& shown) {
        auto& edit = Control<QLineEdit>(shown, "11");
        EXPECT_TRUE(edit.hasFocus());
        EXPECT_EQ(edit.echoMode(), QLineEdit::Password);
        EXPECT_EQ(Text(shown, "65535"), "Въведете парола");
        EXPECT_FALSE(Control(shown, "1").isEnabled());
        QTest::keyClick(&edit, Qt::Key_Return);
        EXPECT_TRUE(shown.isVisible()) << "Enter without a text";
        Type(edit, u"тайна"_s);
        EXPECT_TRUE(Control(shown, "1").isEnabled());
        Photograph(shown, "text-entry-password");
        QTest::keyClick(&edit, Qt::Key_Return);
    });
    EXPECT_EQ(dialog.Show(), 1);
    EXPECT_EQ(dialog.Text(), u"тайна"_s);
}

TEST_F(TextEntry, KeepsTheTextAlsoWhereItIsCancelled) {
    CTextEntryDlg dialog(u"Име"_s, u"Име на файла"_s, u"начало"_s, false);
    WhenShown([](QDialog& shown) {
        EXPECT_TRUE(Control(shown, "1").isEnabled());
        QTest::keyClick(&Control(shown, "11"), Qt::Key_End);
        Type(Control(shown, "11"), u"!"_s);
        QTest::keyClick(&shown, Qt::Key_Escape);
    });
    EXPECT_EQ(dialog.Show(), 2);
    EXPECT_EQ(dialog.Text(), u"начало!"_s);
}

TEST_F(TextEntry, AsksForAPinWithTheWarningBeforeTheLastTry) {
    WhenShown([](QDialog& shown) {
        EXPECT_THAT(Text(shown, "65535"), HasSubstr("последният опит"));
        Photograph(shown, "pin-last-try");
        Type(Control(shown, "11"), u"1234"_s);
        Click(shown, "1");
    });
    const auto pin = dialogs::QtInterface().AskPin({.subject = u"Карта на Иван Петров", .lastTry = true});
    ASSERT_TRUE(pin);
    EXPECT_EQ(pin->Text(), "1234");
}

}  // namespace

#include "dialogs/CAboutDlg.h"
#include "dialogs/CColorListCtrl.h"
#include "dialogs/CProgressDlg.h"
#include "dialogs/CSignDlg.h"
#include "dialogs/QtInterface.h"
#include "tests/dialogs/DialogFixture.h"
#include "tests/support/ChainWorld.h"

namespace {

using namespace tests;

class SignDialog : public DialogFixture {
  protected:
    static ui::SignQuestion Question(std::size_t certificates) {
        static const tessaly::CryptCertificate first(ContextOf(Issue({.subject = {{"CN", "Иван Петров Димитров"}}})),
                                                     true),
            second(ContextOf(Issue({.subject = {{"CN", "Мария Георгиева"}}})), true);
        ui::SignQuestion question;
        for (std::size_t i = 0; i < certificates; ++i)
            question.certificates.push_back(i % 2 == 0 ? first : second);
        question.authorities.resize(2);
        question.authorities[0].title = u"Първи удостоверител";
        question.authorities[1].title = u"Втори удостоверител на време с доста дълго име";
        return question;
    }
    static std::optional<ui::SignDecision> Ask(const ui::SignQuestion& question, std::function<void(QDialog&)> step) {
        WhenShown(std::move(step));
        return CSignDlg(question).Ask();
    }
};

TEST_F(SignDialog, HasItsOneCertificateChosenAndSignsWithEnter) {
    auto question = Question(1);
    question.authorities[0].selected = question.authorities[1].selected = true;
    const auto decision = Ask(question, [](QDialog& shown) {
        EXPECT_EQ(Control<CColorListCtrl>(shown, "271").SelectedRow(), 0);
        EXPECT_FALSE(Control(shown, "236").isEnabled());
        EXPECT_TRUE(Control<QRadioButton>(shown, "237").isChecked());
        EXPECT_TRUE(Control(shown, "143").isVisible());
        EXPECT_EQ(Control<QLineEdit>(shown, "6104").maxLength(), 300);
        EXPECT_EQ(Control<QComboBox>(shown, "6115").currentIndex(), 2) << "the last one marked";
        Photograph(shown, "sign-one");
        Control<QCheckBox>(shown, "143").setChecked(true);
        QTest::keyClick(&Control(shown, "271"), Qt::Key_Return);
    });
    ASSERT_TRUE(decision && decision->authority);
    EXPECT_TRUE(decision->certificate == question.certificates[0].Context());
    EXPECT_TRUE(decision->detached);
    EXPECT_EQ(decision->authority->title, question.authorities[1].title);
}

TEST_F(SignDialog, StaysOpenUntilACertificateIsChosenAndTakesItFromTheKeyboard) {
    auto question = Question(3);
    question.showDetachedBox = false;
    const auto decision = Ask(question, [](QDialog& shown) {
        auto& list = Control<CColorListCtrl>(shown, "271");
        EXPECT_EQ(list.SelectedRow(), -1);
        EXPECT_TRUE(list.hasFocus());
        EXPECT_FALSE(Control(shown, "143").isVisible());
        EXPECT_EQ(Text(shown, "6115"), "Без Timestamp");
        Photograph(shown, "sign-three");
        EXPECT_EQ(Said([&] { Click(shown, "6127"); }), "Информация: Моля изберете цифров сертификат.");
        EXPECT_TRUE(shown.isVisible());
        QTest::keyClick(&list, Qt::Key_Space);
        EXPECT_EQ(list.SelectedRow(), 0) << "Space chooses the row that has the focus";
        QTest::keyClick(&list, Qt::Key_Down);
        EXPECT_EQ(list.SelectedRow(), 1);
        Click(shown, "6127");
        EXPECT_FALSE(shown.isVisible());
    });
    ASSERT_TRUE(decision);
    EXPECT_TRUE(decision->certificate == question.certificates[1].Context());
    EXPECT_FALSE(decision->authority || decision->detached);
}

TEST_F(SignDialog, IsCancelledByEscAndTellsWhatAnEmptyListMeans) {
    EXPECT_FALSE(Ask(Question(0), [](QDialog& shown) {
        Photograph(shown, "sign-none");
        QTest::keyClick(&shown, Qt::Key_Escape);
    }));
}

TEST_F(SignDialog, IsReachedByKeysAndShowsTheCertificateOfTheRowWithItsFieldsAndPath) {
    EXPECT_FALSE(Ask(Question(2), [](QDialog& shown) {
        EXPECT_TRUE(shown.windowFlags().testFlag(Qt::WindowStaysOnTopHint));
        ExpectKeyboard(shown, u"271 237 143 6104 6115 6127 6128"_s, 8);
        const auto look = [](QWidget& view) {
            Photograph(view, "certificate-general");
            auto& tabs = Control<QTabWidget>(view, "20");
            tabs.setCurrentIndex(1);
            Photograph(view, "certificate-details");
            EXPECT_EQ(Text(view, "22"), "V3");
            tabs.setCurrentIndex(2);
            EXPECT_NE(Text(view, "24"), "");
            Photograph(view, "certificate-path");
            Click(view, "1");
        };
        EXPECT_EQ(Opened([&] { DoubleClick(Control<CColorListCtrl>(shown, "271"), 0); }, look), "Сертификат");
        EXPECT_TRUE(shown.isVisible()) << "behind the view";
        QTest::keyClick(&shown, Qt::Key_Escape);
    }));
}

TEST_F(SignDialog, ClicksDuringALongOperationReachNoOtherWindow) {
    QPushButton other(u"Подпис"_s);
    int clicked = 0;
    QObject::connect(&other, &QPushButton::clicked, [&] { ++clicked; });
    other.show();
    const auto click = [&] { QTest::mouseClick(other.windowHandle(), Qt::LeftButton, {}, other.rect().center()); };
    click();
    ASSERT_EQ(clicked, 1);
    auto progress = dialogs::QtInterface().ShowProgress(u"договор.pdf");
    progress->Update(1, 2);
    click();
    progress.reset();
    QApplication::processEvents();
    EXPECT_EQ(clicked, 1);
    click();
    EXPECT_EQ(clicked, 2);
}

TEST_F(SignDialog, ItsSmallerCompanionsShowTheirTexts) {
    WhenShown([](QDialog& shown) {
        Photograph(shown, "about");
        Click(shown, "1");
    });
    CAboutDlg().DoModal();
    CProgressDlg progress(u"/home/ivan/Документи/договор.pdf"_s);
    progress.show();
    progress.Update(40, 100);
    Photograph(progress, "progress");
}

}  // namespace

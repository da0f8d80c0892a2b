#include <QCheckBox>
#include <QComboBox>
#include <QLabel>
#include <QLineEdit>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QRadioButton>
#include <QTabWidget>

#include "dialogs/CAboutDlg.h"
#include "dialogs/CColorListCtrl.h"
#include "dialogs/CProgressDlg.h"
#include "dialogs/CSignDlg.h"
#include "dialogs/QtInterface.h"
#include "tests/dialogs/DialogFixture.h"
#include "tests/support/Pki.h"

namespace {

class SignDialog : public tests::DialogFixture {
  protected:
    static tessaly::CryptCertificate Certificate(const std::string& name) {
        const auto certificate = tests::Issue({.subject = {{"CN", name}}});
        return {platform::CertCreateCertificateContext(certificate.Der()), true};
    }
    static ui::SignQuestion Question(std::size_t certificates) {
        static const auto first = Certificate("Иван Петров Димитров"), second = Certificate("Мария Георгиева");
        ui::SignQuestion question;
        for (std::size_t i = 0; i < certificates; ++i)
            question.certificates.push_back(i % 2 == 0 ? first : second);
        question.authorities.resize(2);
        question.authorities[0].title = u"Първи удостоверител";
        question.authorities[1].title = u"Втори удостоверител на време с доста дълго име";
        return question;
    }
};

TEST_F(SignDialog, HasItsOneCertificateChosenAndSignsWithEnter) {
    auto question = Question(1);
    question.authorities[0].selected = question.authorities[1].selected = true;
    WhenShown([](QDialog& shown) {
        EXPECT_EQ(Control<CColorListCtrl>(shown, "271").SelectedRow(), 0);
        EXPECT_FALSE(Control<QRadioButton>(shown, "236").isEnabled());
        EXPECT_TRUE(Control<QRadioButton>(shown, "237").isChecked());
        EXPECT_TRUE(Control<QCheckBox>(shown, "143").isVisible());
        EXPECT_EQ(Control<QLineEdit>(shown, "6104").maxLength(), 300);
        EXPECT_EQ(Control<QComboBox>(shown, "6115").currentIndex(), 2) << "the last one marked";
        Photograph(shown, "sign-one");
        Control<QCheckBox>(shown, "143").setChecked(true);
        QTest::keyClick(&Control<CColorListCtrl>(shown, "271"), Qt::Key_Return);
    });
    const auto decision = CSignDlg(question).Ask();
    ASSERT_TRUE(decision);
    EXPECT_TRUE(decision->certificate == question.certificates[0].Context());
    EXPECT_TRUE(decision->detached);
    ASSERT_TRUE(decision->authority);
    EXPECT_EQ(decision->authority->title, question.authorities[1].title);
}

TEST_F(SignDialog, StaysOpenUntilACertificateIsChosenAndTakesItFromTheKeyboard) {
    auto question = Question(3);
    question.showDetachedBox = false;
    WhenShown([](QDialog& shown) {
        auto& list = Control<CColorListCtrl>(shown, "271");
        EXPECT_EQ(list.SelectedRow(), -1);
        EXPECT_TRUE(list.hasFocus());
        EXPECT_FALSE(Control<QCheckBox>(shown, "143").isVisible());
        EXPECT_EQ(Control<QComboBox>(shown, "6115").currentText(), QStringLiteral("Без Timestamp"));
        Photograph(shown, "sign-three");
        const auto read = [](QWidget& box) {
            EXPECT_EQ(Control<QLabel>(box, "qt_msgbox_label").text(),
                      QStringLiteral("Моля изберете цифров сертификат."));
            Control<QPushButton>(box, "1").click();
        };
        EXPECT_EQ(Opened([&] { Control<QPushButton>(shown, "6127").click(); }, read), "Информация");
        EXPECT_TRUE(shown.isVisible());
        QTest::keyClick(&list, Qt::Key_Space);
        EXPECT_EQ(list.SelectedRow(), 0) << "Space chooses the row that has the focus";
        QTest::keyClick(&list, Qt::Key_Down);
        EXPECT_EQ(list.SelectedRow(), 1);
        Control<QPushButton>(shown, "6127").click();
        EXPECT_FALSE(shown.isVisible());
    });
    const auto decision = CSignDlg(question).Ask();
    ASSERT_TRUE(decision);
    EXPECT_TRUE(decision->certificate == question.certificates[1].Context());
    EXPECT_FALSE(decision->authority);
    EXPECT_FALSE(decision->detached);
}

TEST_F(SignDialog, IsCancelledByEscAndTellsWhatAnEmptyListMeans) {
    WhenShown([](QDialog& shown) {
        Photograph(shown, "sign-none");
        QTest::keyClick(&shown, Qt::Key_Escape);
    });
    EXPECT_FALSE(CSignDlg(Question(0)).Ask());
}

TEST_F(SignDialog, ShowsTheCertificateOfTheRowWithItsFieldsAndPath) {
    WhenShown([](QDialog& shown) {
        auto& list = Control<CColorListCtrl>(shown, "271");
        const auto place = list.visualRect(list.model()->index(0, 0)).center();
        const auto look = [](QWidget& view) {
            Photograph(view, "certificate-general");
            auto& tabs = Control<QTabWidget>(view, "20");
            tabs.setCurrentIndex(1);
            Photograph(view, "certificate-details");
            EXPECT_EQ(Control<QPlainTextEdit>(view, "22").toPlainText(), QStringLiteral("V3"));
            tabs.setCurrentIndex(2);
            EXPECT_FALSE(Control<QLabel>(view, "24").text().isEmpty());
            Photograph(view, "certificate-path");
            Control<QPushButton>(view, "1").click();
        };
        QTest::mouseClick(list.viewport(), Qt::LeftButton, {}, place);
        const auto doubleClick = [&] { QTest::mouseDClick(list.viewport(), Qt::LeftButton, {}, place); };
        EXPECT_EQ(Opened(doubleClick, look), "Сертификат");
        EXPECT_TRUE(shown.isVisible()) << "behind the view";
        QTest::keyClick(&shown, Qt::Key_Escape);
    });
    EXPECT_FALSE(CSignDlg(Question(2)).Ask());
}

TEST_F(SignDialog, EveryControlIsReachedByTabAndByAnAltKeyOfItsOwnAndHasAName) {
    WhenShown([](QDialog& shown) {
        EXPECT_TRUE(shown.windowFlags().testFlag(Qt::WindowStaysOnTopHint));
        ExpectKeyboard(shown, QStringLiteral("271 237 143 6104 6115 6127 6128"), 8);
        QTest::keyClick(&shown, Qt::Key_Escape);
    });
    EXPECT_FALSE(CSignDlg(Question(2)).Ask());
}

TEST_F(SignDialog, ClicksDuringALongOperationReachNoOtherWindow) {
    QPushButton other(QStringLiteral("Подпис"));
    int clicked = 0;
    QObject::connect(&other, &QPushButton::clicked, [&] { ++clicked; });
    other.show();
    const auto click = [&] { QTest::mouseClick(other.windowHandle(), Qt::LeftButton, {}, other.rect().center()); };
    click();
    ASSERT_EQ(clicked, 1);
    dialogs::QtInterface windows;
    auto progress = windows.ShowProgress(u"договор.pdf");
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
        Control<QPushButton>(shown, "1").click();
    });
    CAboutDlg().DoModal();
    CProgressDlg progress(QStringLiteral("/home/ivan/Документи/договор.pdf"));
    progress.show();
    progress.Update(40, 100);
    Photograph(progress, "progress");
}

}  // namespace

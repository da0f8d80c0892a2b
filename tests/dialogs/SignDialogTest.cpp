#include <QAccessible>
#include <QCheckBox>
#include <QComboBox>
#include <QLabel>
#include <QLineEdit>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QRadioButton>
#include <QTabWidget>
#include <QTimer>

#include "dialogs/CAboutDlg.h"
#include "dialogs/CCertificateView.h"
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
        EXPECT_EQ(shown.windowTitle(), QStringLiteral("ТЕСАЛИ Norvik - подписване на файл"));
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
        QTimer::singleShot(0, qApp, [] {
            auto& box = *QApplication::activeModalWidget();
            EXPECT_EQ(box.windowTitle(), QStringLiteral("Информация"));
            EXPECT_TRUE(box.findChild<QLabel*>(QStringLiteral("qt_msgbox_label"))->text() ==
                        QStringLiteral("Моля изберете цифров сертификат."));
            Control<QPushButton>(box, "1").click();
        });
        Control<QPushButton>(shown, "6127").click();
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

TEST_F(SignDialog, OpensWithThousandsOfCertificatesWithoutReadingThemAll) {
    auto question = Question(2000);
    WhenShown([](QDialog& shown) {
        auto& list = Control<CColorListCtrl>(shown, "271");
        EXPECT_EQ(list.model()->rowCount(), 2000);
        list.scrollToBottom();
        list.SelectRow(1999);
        Control<QPushButton>(shown, "6127").click();
    });
    const auto decision = CSignDlg(question).Ask();
    ASSERT_TRUE(decision);
    EXPECT_TRUE(decision->certificate == question.certificates[1999].Context());
}

TEST_F(SignDialog, ShowsACertificateOnDoubleClickAndOnAltEnterWithItsFieldsAndPath) {
    const auto question = Question(2);
    WhenShown([](QDialog& shown) {
        auto& list = Control<CColorListCtrl>(shown, "271");
        QTimer::singleShot(0, qApp, [] {
            auto& view = *QApplication::activeModalWidget();
            EXPECT_EQ(view.windowTitle(), QStringLiteral("Сертификат"));
            Photograph(view, "certificate-general");
            auto& tabs = Control<QTabWidget>(view, "20");
            tabs.setCurrentIndex(1);
            Photograph(view, "certificate-details");
            EXPECT_EQ(Control<QPlainTextEdit>(view, "22").toPlainText(), QStringLiteral("V3"));
            tabs.setCurrentIndex(2);
            EXPECT_FALSE(Control<QLabel>(view, "24").text().isEmpty());
            Photograph(view, "certificate-path");
            Control<QPushButton>(view, "1").click();
        });
        const auto place = list.visualRect(list.model()->index(0, 0)).center();
        QTest::mouseClick(list.viewport(), Qt::LeftButton, {}, place);
        QTest::mouseDClick(list.viewport(), Qt::LeftButton, {}, place);
        shown.activateWindow();  // as a window manager does when the view has gone
        list.setFocus();
        QApplication::processEvents();
        bool byKey = false;
        QTimer::singleShot(0, qApp, [&byKey] {
            auto& view = *QApplication::activeModalWidget();
            byKey = view.windowTitle() == QStringLiteral("Сертификат");
            QTest::keyClick(&view, Qt::Key_Escape);
        });
        QTest::keyClick(&list, Qt::Key_Return, Qt::AltModifier);
        EXPECT_TRUE(byKey);
        EXPECT_TRUE(shown.isVisible()) << "behind the view";
        QTest::keyClick(&shown, Qt::Key_Escape);
    });
    EXPECT_FALSE(CSignDlg(question).Ask());
}

TEST_F(SignDialog, EveryControlIsReachedByTabAndByAnAltKeyOfItsOwnAndHasAName) {
    WhenShown([](QDialog& shown) {
        EXPECT_TRUE(shown.windowFlags().testFlag(Qt::WindowStaysOnTopHint));
        QStringList order, keys;
        for (int i = 0; i < 12; ++i) {
            const auto* const control = QApplication::focusWidget();
            if (order.contains(control->objectName())) break;
            order << control->objectName();
            EXPECT_FALSE(
                QAccessible::queryAccessibleInterface(const_cast<QWidget*>(control))->text(QAccessible::Name).isEmpty())
                << control->objectName().toStdString();
            QTest::keyClick(const_cast<QWidget*>(control), Qt::Key_Tab);
        }
        EXPECT_EQ(order.join(QLatin1Char(' ')), QStringLiteral("271 237 143 6104 6115 6127 6128"));
        for (auto* const control : shown.findChildren<QWidget*>()) {
            const auto text = control->property("text").toString() + control->property("title").toString();
            const auto at = text.indexOf(QLatin1Char('&'));
            if (at >= 0) keys << text.mid(at + 1, 1).toUpper();
        }
        EXPECT_EQ(keys.size(), 8);
        EXPECT_EQ(keys.removeDuplicates(), 0) << keys.join(QLatin1Char(' ')).toStdString();
        QTest::keyClick(&shown, Qt::Key_Escape);
    });
    EXPECT_FALSE(CSignDlg(Question(2)).Ask());
}

TEST_F(SignDialog, LongNamesAreElidedAndMarkupInThemStaysText) {
    auto question = Question(1);
    const std::string name = "<b>Много</b> дълго име на притежател с няколко фамилии";
    question.certificates = {Certificate(name)};
    question.authorities[0].title = std::u16string(200, u'Щ');
    question.authorities[0].selected = true;
    WhenShown([&](QDialog& shown) {
        auto& list = Control<CColorListCtrl>(shown, "271");
        const auto cell = list.visualRect(list.model()->index(0, 0)).center();
        EXPECT_EQ(list.ToolTipAt(cell), QString::fromStdString(name));
        EXPECT_LT(shown.width(), 1000);
        Photograph(shown, "sign-long-names");
        QTest::keyClick(&shown, Qt::Key_Escape);
    });
    EXPECT_FALSE(CSignDlg(question).Ask());
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
    EXPECT_EQ(Control<QLabel>(progress, "175").text(), QStringLiteral("Зареждане на файл: "));
    EXPECT_TRUE(Control<QLineEdit>(progress, "190").isReadOnly());
    Photograph(progress, "progress");
}

}  // namespace

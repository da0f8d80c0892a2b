#include <QLabel>
#include <QMessageBox>
#include <QPushButton>
#include <QTimer>

#include "dialogs/CColorListCtrl.h"
#include "dialogs/CSelectCertificateDlg.h"
#include "dialogs/QtInterface.h"
#include "platform/Stores.h"
#include "tests/dialogs/DialogFixture.h"
#include "tests/support/Pki.h"

namespace {

using platform::CertificateContext;
using tessaly::CertStatusResult;

CertificateContext Made(const std::string& name, std::int64_t notAfter = std::time(nullptr) + 30 * tests::kDay) {
    const auto made = tests::Issue({.subject = {{"CN", name}, {"O", "Фирма"}},
                                    .notBefore = std::time(nullptr) - 30 * tests::kDay,
                                    .notAfter = notAfter,
                                    .key = tests::TestKey(tests::KeyType::p256)});
    return platform::CertCreateCertificateContext(made.Der());
}

class SelectCertificate : public tests::DialogFixture {
  protected:
    static void SetUpTestSuite() {
        first_ = Made("Иван Петров");
        second_ = Made("Мария Георгиева " + std::string(300, 'x'));
        expired_ = Made("Изтекъл", std::time(nullptr) - tests::kDay);
    }
    static tessaly::CryptStore Store(const std::vector<CertificateContext>& certificates) {
        tessaly::CryptStore store;
        for (const auto& certificate : certificates)
            EXPECT_TRUE(
                platform::CertAddCertificateContextToStore(store.store, certificate, platform::CERT_STORE_ADD_ALWAYS));
        return store;
    }
    static CSelectCertificateDlg::Check Answering(std::uint32_t status, int& asked) {
        return [status, &asked](const CertificateContext&) {
            ++asked;
            return CertStatusResult{u"Сертификатът е отменен на 01.03.2024 г.", status};
        };
    }
    static QPoint Middle(CColorListCtrl& list, int row) {
        return list.visualRect(list.model()->index(row, 0)).center();
    }
    static void ExpectButtons(QDialog& shown, bool enabled) {
        EXPECT_EQ(Control<QPushButton>(shown, "1").isEnabled(), enabled);
        EXPECT_EQ(Control<QPushButton>(shown, "12").isEnabled(), enabled);
    }
    static inline CertificateContext first_, second_, expired_;
};

TEST_F(SelectCertificate, OffersTheValidOnesInReverseAndGivesTheRowThatWasClicked) {
    WhenShown([](QDialog& shown) {
        auto& list = Control<CColorListCtrl>(shown, "11");
        EXPECT_TRUE(list.hasFocus());
        ASSERT_EQ(list.model()->rowCount(), 2) << "without the expired one";
        EXPECT_EQ(list.model()->index(1, 0).data().toString(), QStringLiteral("Иван Петров"));
        EXPECT_EQ(list.model()->index(1, 1).data().toString(), QStringLiteral("Фирма"));
        ExpectButtons(shown, false);
        const QPoint empty(5, list.viewport()->height() - 5);
        QTest::mouseDClick(list.viewport(), Qt::LeftButton, {}, empty);
        EXPECT_TRUE(shown.isVisible()) << "a double click beside the rows";
        ExpectButtons(shown, false);
        QTest::mouseClick(list.viewport(), Qt::LeftButton, {}, Middle(list, 1));
        ExpectButtons(shown, true);
        Photograph(shown, "select-chosen");
        Control<QPushButton>(shown, "1").click();
    });
    dialogs::QtInterface windows;
    EXPECT_TRUE(windows.AskCertificate({u"Избор", Store({first_, expired_, second_})}) == first_);
}

TEST_F(SelectCertificate, TellsWhatIsMissingWhereNoneIsValid) {
    WhenShown([](QDialog& shown) {
        EXPECT_EQ(Control<CColorListCtrl>(shown, "11").model()->rowCount(), 0);
        Photograph(shown, "select-empty");
        QTest::keyClick(&shown, Qt::Key_Return);
        EXPECT_TRUE(shown.isVisible()) << "Enter without a choice";
        ExpectButtons(shown, false);
        Control<QPushButton>(shown, "2").click();
    });
    dialogs::QtInterface windows;
    EXPECT_FALSE(windows.AskCertificate({u"Избор", Store({expired_})}));
}

TEST_F(SelectCertificate, RefusesARevokedOneWithItsMessageAndClosesWhileAnUnknownStatusPasses) {
    const struct {
        std::uint32_t status;
        bool passes;
    } cases[] = {{platform::ERROR_SUCCESS, true},
                 {platform::CRYPT_E_NO_REVOCATION_CHECK, true},
                 {platform::CRYPT_E_REVOCATION_OFFLINE, true},
                 {platform::CRYPT_E_REVOKED, false},
                 {tessaly::kStatusNotBuilt, false}};
    for (const auto& [status, passes] : cases) {
        int asked = 0;
        CSelectCertificateDlg dialog(QStringLiteral("Избор"), certificates::OfferedCertificates(Store({first_})),
                                     Answering(status, asked));
        bool told = false;
        WhenShown([&](QDialog& shown) {
            QTimer::singleShot(0, qApp, [&] {
                auto* const box = qobject_cast<QMessageBox*>(QApplication::activeModalWidget());
                if (box == nullptr) return;
                told = box->text().startsWith(QStringLiteral("Сертификатът е отменен")) &&
                       box->icon() == QMessageBox::Critical;
                Photograph(*box, "select-refused");
                Control<QPushButton>(*box, "1").click();
            });
            auto& list = Control<CColorListCtrl>(shown, "11");
            QTest::mouseClick(list.viewport(), Qt::LeftButton, {}, Middle(list, 0));
            QTest::mouseDClick(list.viewport(), Qt::LeftButton, {}, Middle(list, 0));
            EXPECT_FALSE(shown.isVisible()) << status;
        });
        EXPECT_EQ(dialog.Show(), passes ? 1 : 2) << status;
        EXPECT_EQ(asked, 1) << status;
        EXPECT_EQ(told, !passes) << status;
        EXPECT_EQ(static_cast<bool>(dialog.Selected()), passes) << status;
    }
}

TEST_F(SelectCertificate, WorksFromTheKeyboardAloneAndGivesAFailureOfTheCheckToItsCaller) {
    const auto offered = certificates::OfferedCertificates(Store({first_, second_}));
    const auto choose = [](QDialog& shown) {
        auto& list = Control<CColorListCtrl>(shown, "11");
        QTest::keyClick(&list, Qt::Key_Down);
        EXPECT_EQ(list.SelectedRow(), 0) << "the first arrow chooses the first";
        QTest::keyClick(&list, Qt::Key_End);
        EXPECT_EQ(list.SelectedRow(), 1);
        QTest::keyClick(&list, Qt::Key_Return);
    };
    int asked = 0;
    CSelectCertificateDlg dialog(QStringLiteral("Избор"), offered, Answering(0, asked));
    WhenShown(choose);
    EXPECT_EQ(dialog.Show(), 1);
    EXPECT_TRUE(dialog.Selected() == offered[1].Context());
    EXPECT_EQ(asked, 1);

    CSelectCertificateDlg failing(QStringLiteral("Избор"), offered,
                                  [](const CertificateContext&) -> CertStatusResult { throw std::runtime_error("x"); });
    WhenShown(choose);
    EXPECT_THROW(failing.Show(), std::runtime_error);
    EXPECT_FALSE(failing.Selected());
}

TEST_F(SelectCertificate, ShowsTheCertificateAndChecksNothingWhenCancelled) {
    int asked = 0;
    CSelectCertificateDlg dialog(QStringLiteral("Избор"), certificates::OfferedCertificates(Store({second_})),
                                 Answering(0, asked));
    WhenShown([](QDialog& shown) {
        auto& list = Control<CColorListCtrl>(shown, "11");
        QTest::mouseClick(list.viewport(), Qt::LeftButton, {}, Middle(list, 0));
        const auto look = [](QWidget& view) {
            EXPECT_LT(view.minimumSizeHint().width(), 1000) << "a name of three hundred letters";
            Photograph(view, "certificate-long-name");
            QTest::keyClick(&view, Qt::Key_Escape);
        };
        EXPECT_EQ(Opened([&] { Control<QPushButton>(shown, "12").click(); }, look), "Certificate Info");
        EXPECT_TRUE(shown.isVisible()) << "the list stays open behind the view";
        QTest::keyClick(&shown, Qt::Key_Escape);
    });
    EXPECT_EQ(dialog.Show(), 2);
    EXPECT_FALSE(dialog.Selected());
    EXPECT_EQ(asked, 0);
}

}  // namespace

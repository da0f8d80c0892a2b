#include "dialogs/CColorListCtrl.h"
#include "dialogs/CSelectCertificateDlg.h"
#include "dialogs/QtInterface.h"
#include "platform/Stores.h"
#include "tests/dialogs/DialogFixture.h"
#include "tests/support/ChainWorld.h"

namespace {

using namespace tests;
using platform::CertificateContext;
using tessaly::CertStatusResult;

CertificateContext Made(const std::string& name, std::int64_t notAfter = std::time(nullptr) + kDay) {
    return ContextOf(Issue({.subject = {{"CN", name}, {"O", "Фирма"}},
                            .notBefore = std::time(nullptr) - 30 * kDay,
                            .notAfter = notAfter,
                            .key = TestKey(KeyType::p256)}));
}

class SelectCertificate : public DialogFixture {
  protected:
    static tessaly::CryptStore Store(const std::vector<CertificateContext>& certificates) {
        tessaly::CryptStore store;
        for (const auto& certificate : certificates)
            EXPECT_TRUE(
                platform::CertAddCertificateContextToStore(store.store, certificate, platform::CERT_STORE_ADD_ALWAYS));
        return store;
    }
    CSelectCertificateDlg::Check Answering(std::uint32_t status) {
        return [status, this](const CertificateContext&) {
            ++checks_;
            return CertStatusResult{u"Сертификатът е отменен на 01.03.2024 г.", status};
        };
    }
    static void ExpectButtons(QDialog& shown, bool enabled) {
        for (const auto* const id : {"1", "12"})
            EXPECT_EQ(Control(shown, id).isEnabled(), enabled);
    }
    const CertificateContext first_ = Made("Иван Петров"), second_ = Made("Мария Георгиева " + std::string(300, 'x')),
                             expired_ = Made("Изтекъл", std::time(nullptr) - kDay);
    int checks_ = 0;
};

TEST_F(SelectCertificate, OffersTheValidOnesInReverseAndGivesTheRowThatWasClicked) {
    WhenShown([](QDialog& shown) {
        auto& list = Control<CColorListCtrl>(shown, "11");
        EXPECT_TRUE(list.hasFocus());
        EXPECT_EQ(Rows(shown, "11").size(), 2U) << "without the expired one";
        EXPECT_THAT(Rows(shown, "11").at(1), testing::StartsWith("Иван Петров|Фирма|"));
        ExpectButtons(shown, false);
        QTest::mouseDClick(list.viewport(), Qt::LeftButton, {}, QPoint(5, list.viewport()->height() - 5));
        EXPECT_TRUE(shown.isVisible()) << "a double click beside the rows";
        ExpectButtons(shown, false);
        QTest::mouseClick(list.viewport(), Qt::LeftButton, {}, Middle(list, 1));
        ExpectButtons(shown, true);
        Photograph(shown, "select-chosen");
        Click(shown, "1");
    });
    EXPECT_TRUE(dialogs::QtInterface().AskCertificate({u"Избор", Store({first_, expired_, second_})}) == first_);
}

TEST_F(SelectCertificate, KeepsANameOnItsLineAndItselfOnTheScreen) {
    CSelectCertificateDlg dialog(u"Избор"_s,
                                 certificates::OfferedCertificates(Store({Made("Иван\n\xE2\x80\xAEПетров")})));
    dialog.resize(9000, 9000);
    WhenShown([](QDialog& shown) {
        EXPECT_THAT(Rows(shown, "11").at(0), testing::AllOf(testing::StartsWith("Иван"), testing::Not(HasSubstr("\n")),
                                                            testing::Not(HasSubstr("\xE2\x80\xAE"))));
        const auto screen = shown.screen()->availableSize();
        EXPECT_EQ(shown.width(), screen.width());
        EXPECT_LT(shown.height(), screen.height()) << "with room for its title";
        shown.reject();
    });
    EXPECT_EQ(dialog.Show(), 2);
}

TEST_F(SelectCertificate, TellsWhatIsMissingWhereNoneIsValid) {
    WhenShown([](QDialog& shown) {
        EXPECT_THAT(Rows(shown, "11"), testing::IsEmpty());
        Photograph(shown, "select-empty");
        QTest::keyClick(&shown, Qt::Key_Return);
        EXPECT_TRUE(shown.isVisible()) << "Enter without a choice";
        ExpectButtons(shown, false);
        Click(shown, "2");
    });
    EXPECT_FALSE(dialogs::QtInterface().AskCertificate({u"Избор", Store({expired_})}));
}

TEST_F(SelectCertificate, RefusesARevokedOneWithItsMessageAndClosesWhileAnUnknownStatusPasses) {
    for (const auto& [status, passes] : {std::pair{platform::ERROR_SUCCESS, true},
                                         {platform::CRYPT_E_NO_REVOCATION_CHECK, true},
                                         {platform::CRYPT_E_REVOCATION_OFFLINE, true},
                                         {platform::CRYPT_E_REVOKED, false},
                                         {tessaly::kStatusNotBuilt, false}}) {
        checks_ = 0;
        CSelectCertificateDlg dialog(u"Избор"_s, certificates::OfferedCertificates(Store({first_})), Answering(status));
        WhenShown([&, passes = passes, status = status](QDialog& shown) {
            const auto choose = [&] { DoubleClick(Control<CColorListCtrl>(shown, "11"), 0); };
            const auto read = [](QMessageBox& box) {
                EXPECT_TRUE(box.text().startsWith(u"Сертификатът е отменен"_s)) << box.text().toStdString();
                EXPECT_EQ(box.icon(), QMessageBox::Critical);
                Photograph(box, "select-refused");
                Click(box, "1");
            };
            if (passes) {
                choose();
            } else {
                EXPECT_NE(Opened<QMessageBox>(choose, read), "nothing");
            }
            EXPECT_FALSE(shown.isVisible()) << status;
        });
        EXPECT_EQ(dialog.Show(), passes ? 1 : 2) << status;
        EXPECT_EQ(checks_, 1) << status;
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
    CSelectCertificateDlg dialog(u"Избор"_s, offered, Answering(0));
    WhenShown(choose);
    EXPECT_EQ(dialog.Show(), 1);
    EXPECT_TRUE(dialog.Selected() == offered[1].Context());

    CSelectCertificateDlg failing(u"Избор"_s, offered,
                                  [](const CertificateContext&) -> CertStatusResult { throw std::runtime_error("x"); });
    WhenShown(choose);
    EXPECT_THROW(failing.Show(), std::runtime_error);
    EXPECT_FALSE(failing.Selected());
}

TEST_F(SelectCertificate, ShowsTheCertificateAndChecksNothingWhenCancelled) {
    CSelectCertificateDlg dialog(u"Избор"_s, certificates::OfferedCertificates(Store({second_})), Answering(0));
    WhenShown([](QDialog& shown) {
        const auto& list = Control<CColorListCtrl>(shown, "11");
        QTest::mouseClick(list.viewport(), Qt::LeftButton, {}, Middle(list, 0));
        const auto look = [](QWidget& view) {
            EXPECT_LT(view.minimumSizeHint().width(), 1000) << "a name of three hundred letters";
            Photograph(view, "certificate-long-name");
            QTest::keyClick(&view, Qt::Key_Escape);
        };
        EXPECT_EQ(Opened([&] { Click(shown, "12"); }, look), "Certificate Info");
        EXPECT_TRUE(shown.isVisible()) << "the list stays open behind the view";
        QTest::keyClick(&shown, Qt::Key_Escape);
    });
    EXPECT_EQ(dialog.Show(), 2);
    EXPECT_FALSE(dialog.Selected());
    EXPECT_EQ(checks_, 0);
}

}  // namespace

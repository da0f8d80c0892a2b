#include <QLabel>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QTreeWidget>

#include "dialogs/CColorListCtrl.h"
#include "dialogs/CSignDetailsDlg.h"
#include "dialogs/CValidationResponseDlg.h"
#include "dialogs/Icons.h"
#include "tests/dialogs/DialogFixture.h"
#include "units/Registry.h"

namespace {

using verification::SignatureEntry;

class SignDetails : public tests::DialogFixture {
  protected:
    static SignatureEntry Entry() { return GoodEntry("Иван Петров Димитров"); }
    // "attribute: details" of each row, with "!" before a marked one.
    static std::vector<std::string> Rows(QWidget& shown) {
        std::vector<std::string> rows;
        const auto& model = *Control<CColorListCtrl>(shown, "6124").model();
        for (int row = 0; row < model.rowCount(); ++row) {
            const auto cell = [&](int column) { return model.index(row, column).data().toString().toStdString(); };
            const bool marked = model.index(row, 0).data(CColorListCtrl::kItemData).toUInt() != 0;
            EXPECT_EQ(marked, model.index(row, 0).data(Qt::DecorationRole).isValid()) << "never colour alone";
            rows.push_back((marked ? "!" : "") + cell(0) + ": " + cell(1));
        }
        return rows;
    }
    static void Expect(const SignatureEntry& entry, const std::vector<std::string>& rows, const char* picture) {
        WhenShown([&](QDialog& shown) {
            EXPECT_EQ(Rows(shown), rows);
            Photograph(shown, picture);
            QTest::keyClick(&shown, Qt::Key_Return);
        });
        EXPECT_EQ(CSignDetailsDlg(entry).DoModal(), QDialog::Accepted);
    }
};

TEST_F(SignDetails, LeavesOutWhatASignatureHasNot) {
    Expect(Entry(),
           {"Схема на подписване: CAdES-BASELINE-B", "Използван алгоритъм: SHA256",
            "Валидност на подпис: Подписът е валиден", "Валидност на сертификат: Сертификатът е валиден.",
            "Валидност на сертификат по време: Валиден"},
           "details-plain");
}

TEST_F(SignDetails, TellsTheTimestampAndMarksWhatIsNotGood) {
    auto entry = Entry();
    entry.signingTime = 1;
    entry.signingTimeText = u"2024-03-01 12:00:00";
    entry.hasTimestamp = true;
    entry.timestampTimeText = u"2024-03-01 12:00:05";
    entry.timestampIssuer = u"Удостоверител на време";
    entry.signStatus = 0x80096010;
    entry.signMessage = tessaly::StatusText(entry.signStatus);
    entry.certStatus = 0x800B0109;
    entry.certMessage = tessaly::StatusText(entry.certStatus);
    entry.certTimeValidity = 1;
    Expect(entry,
           {"Схема на подписване: CAdES-BASELINE-B", "Време на подписване: 2024-03-01 12:00:00",
            "Време на подписване TS: 2024-03-01 12:00:05", "Издател на сертификат на TSA: Удостоверител на време",
            "Използван алгоритъм: SHA256", "!Валидност на подпис: Цифровият подпис на обекта не се потвърди.",
            "!Валидност на сертификат: Веригата за сертифициране е обработена правилно, но е прекратена в сертификат "
            "за корен, който не е надежден от доставчика на доверието.",
            "!Валидност на сертификат по време: Не валиден"},
           "details-all");
}

TEST_F(SignDetails, MarksTheCertificateByTheBitsOfItsStatusWord) {
    for (const auto& [status, marked] : {std::pair{0x00000001U, false},
                                         {0x00000020U, false},
                                         {0x00000004U, true},
                                         {0x00000008U, true},
                                         {0x80092012U, true},
                                         {0xFFFFFFFFU, true}}) {
        auto entry = Entry();
        entry.certStatus = status;
        entry.certTimeValidity = -1;
        WhenShown([&, marked = marked, status = status](QDialog& shown) {
            const auto rows = Rows(shown);
            EXPECT_EQ(rows.at(3).starts_with("!"), marked) << status;
            EXPECT_EQ(rows.at(4), "!Валидност на сертификат по време: Не валиден");
            shown.reject();
        });
        CSignDetailsDlg(entry).DoModal();
    }
}

TEST_F(SignDetails, GoesOnInTheNextLineWhereAMessageIsLong) {
    auto entry = Entry();
    entry.certMessage = std::u16string(100, u'щ') + u" " + std::u16string(100, u'щ');
    entry.certificate = nullptr;
    WhenShown([](QDialog& shown) {
        auto& list = Control<CColorListCtrl>(shown, "6124");
        EXPECT_GT(list.visualRect(list.model()->index(3, 1)).height(),
                  3 * list.visualRect(list.model()->index(2, 1)).height() / 2);
        EXPECT_EQ(Control<QLabel>(shown, "225").text(), QString());
        shown.reject();
    });
    CSignDetailsDlg(entry).DoModal();
}

TEST_F(SignDetails, AValidationResponseReadsItsSettingsWhenItIsMadeAndShowsAFieldWhole) {
    CRegistry registry;
    ASSERT_TRUE(registry.Open(u"software\\tessaly\\Tessaly Norvik\\Verification", true));
    const auto stored = [&](std::u16string_view name) {
        platform::RegistryValue value;
        return platform::RegQueryValueExW(registry.GetKey(), name, value) == platform::ERROR_SUCCESS;
    };
    EXPECT_FALSE(stored(u"UseLocalCRL"));
    CValidationResponseDlg dialog({{u"Издател", u"CN=Удостоверител, O=Организация, C=BG"},
                                   {u"Статус", u"Валиден, за сега"},
                                   {u"Обновен на", u"2024-03-01 12:00:00"}});
    for (const auto* number : {u"VerificationMethod", u"UseLocalCRL", u"DoNotUseCRLCache"})
        EXPECT_TRUE(stored(number));
    for (const auto* text : {u"LocalCRL", u"CERT_FILE", u"OCSP_URL"})
        EXPECT_FALSE(stored(text));
    WhenShown([](QDialog& shown) {
        auto& list = Control<QTreeWidget>(shown, "217");
        const auto& text = Control<QPlainTextEdit>(shown, "6101");
        EXPECT_EQ(text.toPlainText(), QStringLiteral("CN=Удостоверител\nO=Организация\nC=BG"));
        Photograph(shown, "validation-response");
        list.setCurrentItem(list.topLevelItem(2));
        EXPECT_EQ(text.toPlainText(), QStringLiteral("Валиден, за сега"));
        shown.hide();
        shown.show();
        EXPECT_EQ(list.topLevelItemCount(), 3) << "filled once";
        shown.reject();
    });
    dialog.DoModal();
}

}  // namespace

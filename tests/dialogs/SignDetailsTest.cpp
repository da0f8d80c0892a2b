#include "dialogs/CColorListCtrl.h"
#include "dialogs/CSignDetailsDlg.h"
#include "dialogs/CValidationResponseDlg.h"
#include "tests/dialogs/DialogFixture.h"
#include "units/Registry.h"

namespace {

using namespace tests;
using verification::SignatureEntry;

class SignDetails : public DialogFixture {
  protected:
    // The rows, with "!" before a marked one.
    static std::vector<std::string> Marked(QWidget& shown) {
        auto rows = Rows(shown, "6124");
        const auto& model = *Control<CColorListCtrl>(shown, "6124").model();
        for (int row = 0; row < model.rowCount(); ++row) {
            const bool marked = model.index(row, 0).data(CColorListCtrl::kItemData).toUInt() != 0;
            EXPECT_EQ(marked, model.index(row, 0).data(Qt::DecorationRole).isValid()) << "never colour alone";
            if (marked) rows[static_cast<std::size_t>(row)].insert(0, "!");
        }
        return rows;
    }
    static void Expect(const SignatureEntry& entry, const std::vector<std::string>& rows, const char* picture) {
        WhenShown([&](QDialog& shown) {
            EXPECT_EQ(Marked(shown), rows);
            Photograph(shown, picture);
            QTest::keyClick(&shown, Qt::Key_Return);
        });
        EXPECT_EQ(CSignDetailsDlg(entry).DoModal(), QDialog::Accepted);
    }
    SignatureEntry entry_ = GoodEntry("Иван Петров Димитров");
};

TEST_F(SignDetails, LeavesOutWhatASignatureHasNot) {
    Expect(
        entry_,
        {"Схема на подписване|CAdES-BASELINE-B", "Използван алгоритъм|SHA256", "Валидност на подпис|Подписът е валиден",
         "Валидност на сертификат|Сертификатът е валиден.", "Валидност на сертификат по време|Валиден"},
        "details-plain");
}

TEST_F(SignDetails, TellsTheTimestampAndMarksWhatIsNotGood) {
    entry_.signingTime = 1;
    entry_.signingTimeText = u"2024-03-01 12:00:00";
    entry_.hasTimestamp = true;
    entry_.timestampTimeText = u"2024-03-01 12:00:05";
    entry_.timestampIssuer = u"Удостоверител на време";
    entry_.signStatus = 0x80096010;
    entry_.signMessage = tessaly::StatusText(entry_.signStatus);
    entry_.certStatus = 0x800B0109;
    entry_.certMessage = tessaly::StatusText(entry_.certStatus);
    entry_.certTimeValidity = 1;
    Expect(entry_,
           {"Схема на подписване|CAdES-BASELINE-B", "Време на подписване|2024-03-01 12:00:00",
            "Време на подписване TS|2024-03-01 12:00:05", "Издател на сертификат на TSA|Удостоверител на време",
            "Използван алгоритъм|SHA256", "!Валидност на подпис|Цифровият подпис на обекта не се потвърди.",
            "!Валидност на сертификат|Веригата за сертифициране е обработена правилно, но е прекратена в сертификат "
            "за корен, който не е надежден от доставчика на доверието.",
            "!Валидност на сертификат по време|Не валиден"},
           "details-all");
}

TEST_F(SignDetails, MarksTheCertificateByTheBitsOfItsStatusWord) {
    for (const auto& [status, marked] : {std::pair{0x00000001U, false},
                                         {0x00000020U, false},
                                         {0x00000004U, true},
                                         {0x00000008U, true},
                                         {0x80092012U, true},
                                         {0xFFFFFFFFU, true}}) {
        entry_.certStatus = status;
        entry_.certTimeValidity = -1;
        CSignDetailsDlg dialog(entry_);
        EXPECT_EQ(Marked(dialog).at(3).starts_with("!"), marked) << status;
        EXPECT_EQ(Marked(dialog).at(4), "!Валидност на сертификат по време|Не валиден");
    }
}

TEST_F(SignDetails, GoesOnInTheNextLineWhereAMessageIsLong) {
    entry_.certMessage = std::u16string(100, u'щ') + u" " + std::u16string(100, u'щ');
    entry_.certificate = nullptr;
    WhenShown([](QDialog& shown) {
        const auto& list = Control<CColorListCtrl>(shown, "6124");
        const auto height = [&](int row) { return list.visualRect(list.model()->index(row, 1)).height(); };
        EXPECT_GT(height(3), 3 * height(2) / 2);
        EXPECT_EQ(Text(shown, "225"), "");
        shown.reject();
    });
    CSignDetailsDlg(entry_).DoModal();
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
        EXPECT_EQ(Text(shown, "6101"), "CN=Удостоверител\nO=Организация\nC=BG");
        Photograph(shown, "validation-response");
        list.setCurrentItem(list.topLevelItem(2));
        EXPECT_EQ(Text(shown, "6101"), "Валиден, за сега");
        shown.hide();
        shown.show();
        EXPECT_EQ(list.topLevelItemCount(), 3) << "filled once";
        shown.reject();
    });
    dialog.DoModal();
}

}  // namespace

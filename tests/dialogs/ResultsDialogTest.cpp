#include <QPlainTextEdit>
#include <QPushButton>
#include <QTreeWidget>

#include "dialogs/CResultsDlg.h"
#include "dialogs/QtInterface.h"
#include "tests/dialogs/DialogFixture.h"
#include "tests/support/Pki.h"

namespace {

using verification::SignatureEntries;
using verification::SignatureEntry;

class ResultsDialog : public tests::DialogFixture {
  protected:
    static SignatureEntry Entry(const std::string& name, std::uint32_t level = 0) {
        const auto certificate = tests::Issue({.subject = {{"CN", name}}});
        SignatureEntry entry;
        entry.certificate = std::make_unique<tessaly::CryptCertificate>(
            platform::CertCreateCertificateContext(certificate.Der()), true);
        entry.signMessage = u"Подписът е валиден";
        entry.certMessage = u"Сертификатът е валиден.";
        entry.level = level;
        entry.hashAlgorithm = u"SHA256";
        entry.profile = u"CAdES-BASELINE-B";
        return entry;
    }
};

TEST_F(ResultsDialog, ShowsEachSignerWithStateAndComment) {
    SignatureEntries entries;
    for (const char* name : {"Иван Петров", "Мария Георгиева", "Стоян Колев"})
        entries.push_back(Entry(name));
    entries[0].comment = u"Съгласен съм.";
    entries[0].signingTime = 1;
    entries[0].signingTimeText = u"2024-03-01 12:00:00";
    entries[1].signStatus = 0x80096010;
    entries[2].certStatus = 0x80092012;
    WhenShown([](QDialog& shown) {
        EXPECT_EQ(shown.windowTitle(), QStringLiteral("ТЕСАЛИ Norvik - резултати от декриптиране/проверка"));
        auto& tree = Control<QTreeWidget>(shown, "233");
        ASSERT_EQ(tree.topLevelItemCount(), 3);
        EXPECT_EQ(tree.topLevelItem(0)->text(0), QStringLiteral("Иван Петров (2024-03-01 12:00:00) CAdES-BASELINE-B"));
        EXPECT_EQ(tree.topLevelItem(1)->text(0), QStringLiteral("Мария Георгиева CAdES-BASELINE-B"));
        EXPECT_EQ(tree.topLevelItem(0)->text(1), QStringLiteral("Валиден"));
        EXPECT_EQ(tree.topLevelItem(1)->text(1), QStringLiteral("Невалиден"));
        EXPECT_EQ(tree.topLevelItem(2)->text(1), QStringLiteral("Непроверен"));
        tree.setCurrentItem(tree.topLevelItem(0));
        EXPECT_EQ(Control<QPlainTextEdit>(shown, "6104").toPlainText(), QStringLiteral("Съгласен съм."));
        Photograph(shown, "results-flat");
        Control<QPushButton>(shown, "1").click();
    });
    EXPECT_EQ(dialogs::QtInterface().ShowResults({entries, "договор.pdf.p7m", {}}), ui::ResultsAction::none);
}

}  // namespace

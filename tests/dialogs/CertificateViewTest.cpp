#include <filesystem>

#include "dialogs/CCertificateView.h"
#include "tests/dialogs/DialogFixture.h"
#include "tests/support/ChainWorld.h"
#include "tests/support/PemFile.h"

namespace {

using namespace tests;

class CertificateView : public DialogFixture {
  protected:
    // The whole value of the field with that name, as the pane under the list shows it.
    static std::string ValueOf(QWidget& view, const QString& name) {
        auto& list = Control<QTreeWidget>(view, "21");
        const auto found = list.findItems(name, Qt::MatchExactly);
        if (found.size() != 1) return std::to_string(found.size()) + " fields";
        list.setCurrentItem(found.front());
        return Text(view, "22");
    }
    CertificateSpec spec_ = PersonSpec("Иван Петров", 7);
};

TEST_F(CertificateView, TellsExtensionsInWordsAndBrokenOrUnknownOnesAsBytes) {
    spec_.extra = {
        {"2.5.29.32", true, {0x30, 0x84, 0xFF, 0xFF, 0xFF, 0xFF, 0x01}},
        {"1.3.6.1.5.5.7.1.3", false, {0x30, 0x0A, 0x30, 0x08, 0x06, 0x06, 0x04, 0x00, 0x8E, 0x46, 0x01, 0x01}},
        {"1.2.3.4.5", false, {0xDE, 0xAD, 0xBE, 0xEF}},
        {"2.5.29.31", false, {}}};
    CCertificateView view(ContextOf(Issue(spec_)));
    EXPECT_EQ(ValueOf(view, u"Изявления за квалифициран сертификат"_s), "Квалифициран сертификат по правото на ЕС");
    EXPECT_EQ(ValueOf(view, u"1.2.3.4.5"_s), "de ad be ef");
    EXPECT_EQ(ValueOf(view, u"Политики на сертификата (критично)"_s), "30 84 ff ff ff ff 01");
}

TEST_F(CertificateView, TellsThePublicKeyWithItsLengthAndAllItsBytes) {
    const struct {
        KeyType type;
        std::string head;
        std::size_t octets;
    } cases[] = {{KeyType::rsa2048, "RSA, 2048 бита\nЕкспонента: 65537\nМодул:\n", 256},
                 {KeyType::p384, "Елиптична крива, 384 бита\nКрива: P-384\nТочка:\n", 97},
                 {KeyType::dsa2048, "DSA, 2048 бита\nКлюч:\n", 256}};
    for (const auto& [type, head, octets] : cases) {
        spec_.key = TestKey(type);
        const auto made = Issue(spec_);
        CCertificateView view(ContextOf(made));
        const auto value = ValueOf(view, u"Публичен ключ"_s);
        ASSERT_THAT(value, testing::StartsWith(head));
        auto digits = value.substr(head.size());
        std::erase_if(digits, [](char c) { return std::isspace(c); });
        std::ranges::transform(digits, digits.begin(), [](char c) { return static_cast<char>(std::toupper(c)); });
        EXPECT_GE(digits.size(), 2 * octets);
        EXPECT_THAT(Hex(made.PublicKeyInfo()), HasSubstr(digits));
        EXPECT_EQ(Control<QTreeWidget>(view, "21").currentItem()->text(1).left(6),
                  QString::fromStdString(value).left(6))
            << "in the list";
    }
}

TEST_F(CertificateView, WritesTheCertificateAsDerOrPemAndAsksBeforeItReplacesAFile) {
    const auto made = Issue(spec_);
    CCertificateView view(ContextOf(made));
    const auto save = [&](const std::string& file) {
        ChooseFile([&] { Click(view, "12"); }, file,
                   [](QFileDialog& dialog) {
                       EXPECT_EQ(QFileInfo(dialog.selectedFiles().value(0)).fileName(), u"Иван Петров.cer"_s);
                   });
    };
    const auto in = [&](const char* name) { return (profile_.Folder() / name).string(); };
    save(in("x"));
    EXPECT_EQ(ReadFile(in("x.cer")), platform::AsText(made.Der()));
    save(in("x.PEM"));
    EXPECT_EQ(ReadFile(in("x.PEM")), made.Pem());

    profile_.Write("x.cer", "somebody's own");
    Opened<QMessageBox>([&] { save(in("x")); },
                        [](QMessageBox& box) {
                            Photograph(box, "certificate-replace");
                            box.button(QMessageBox::No)->click();
                        });
    EXPECT_EQ(ReadFile(in("x.cer")), "somebody's own");
    EXPECT_THAT(Said([&] { save("/proc/x.cer"); }), testing::StartsWith("Грешка: /proc/x.cer\n"));
}

TEST_F(CertificateView, ShowsANameAsItStandsInToolTips) {
    const auto tip = [](const std::string& name) {
        CCertificateView view(ContextOf(Issue(PersonSpec(name, 7))));
        const auto inPath = Control<QTreeWidget>(view, "23").topLevelItem(0)->toolTip(0);
        const auto labels = view.findChildren<QLabel*>();
        EXPECT_TRUE(std::ranges::any_of(labels, [&](const auto* label) { return label->toolTip() == inPath; }));
        return inPath.toStdString();
    };
    const std::string word(50, 'x');
    EXPECT_EQ(tip("А&Б" + word), "А&Б" + word);
    EXPECT_EQ(tip("<i>А&Б</i>" + word), "<qt>&lt;i&gt;А&amp;Б&lt;/i&gt;" + word + "</qt>");
}

// Certificates that were made to confuse their readers.
TEST_F(CertificateView, OpensEveryCertificateOfTheCorpus) {
    const std::filesystem::path corpus = NORVIK_SOURCE_DIR "/../shared/corpora/chains";
    if (!std::filesystem::exists(corpus)) GTEST_SKIP() << "no corpus beside the sources";
    int opened = 0;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(corpus)) {
        if (!entry.is_regular_file()) continue;
        for (const auto& block : ReadPemFile(entry.path())) {
            const auto certificate = platform::CertCreateCertificateContext(block.der);
            if (!certificate) continue;  // of another kind, or no certificate at all
            CCertificateView view(certificate);
            auto& list = Control<QTreeWidget>(view, "21");
            EXPECT_EQ(static_cast<std::size_t>(list.topLevelItemCount()), certificate.Info().rgExtension.size() + 10)
                << entry.path();
            for (int row = 0; row < list.topLevelItemCount(); ++row)
                list.setCurrentItem(list.topLevelItem(row));
            ++opened;
        }
    }
    EXPECT_GT(opened, 100);
}

}  // namespace

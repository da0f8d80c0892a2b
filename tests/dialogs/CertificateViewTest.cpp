#include <QFileDialog>
#include <QFileInfo>
#include <QLineEdit>
#include <QMessageBox>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QRegularExpression>
#include <QTimer>
#include <QTreeWidget>
#include <filesystem>

#include "dialogs/CCertificateView.h"
#include "tests/dialogs/DialogFixture.h"
#include "tests/support/ChainWorld.h"
#include "tests/support/PemFile.h"

namespace {

class CertificateView : public tests::DialogFixture {
  protected:
    static tests::CertificateSpec Spec() { return tests::PersonSpec("Иван Петров", 7); }
    // The whole value of the field with that name, as the pane under the list shows it.
    static QString ValueOf(QWidget& view, const QString& name) {
        auto& list = Control<QTreeWidget>(view, "21");
        const auto found = list.findItems(name, Qt::MatchExactly);
        if (found.size() != 1) return QStringLiteral("%1 fields").arg(found.size());
        list.setCurrentItem(found.front());
        return Control<QPlainTextEdit>(view, "22").toPlainText();
    }
};

TEST_F(CertificateView, TellsExtensionsInWordsAndBrokenOrUnknownOnesAsBytes) {
    auto spec = Spec();
    spec.extra = {
        {"2.5.29.32", true, {0x30, 0x84, 0xFF, 0xFF, 0xFF, 0xFF, 0x01}},
        {"1.3.6.1.5.5.7.1.3", false, {0x30, 0x0A, 0x30, 0x08, 0x06, 0x06, 0x04, 0x00, 0x8E, 0x46, 0x01, 0x01}},
        {"1.2.3.4.5", false, {0xDE, 0xAD, 0xBE, 0xEF}},
        {"2.5.29.31", false, {}}};
    CCertificateView view(tests::ContextOf(tests::Issue(spec)));
    EXPECT_EQ(ValueOf(view, QStringLiteral("Изявления за квалифициран сертификат")),
              QStringLiteral("Квалифициран сертификат по правото на ЕС"));
    EXPECT_EQ(ValueOf(view, QStringLiteral("1.2.3.4.5")), QStringLiteral("de ad be ef"));
    EXPECT_EQ(ValueOf(view, QStringLiteral("Политики на сертификата (критично)")),
              QStringLiteral("30 84 ff ff ff ff 01"));
}

TEST_F(CertificateView, TellsThePublicKeyWithItsLengthAndAllItsBytes) {
    using tests::KeyType;
    const struct {
        KeyType type;
        const char16_t* head;
        qsizetype octets;
    } cases[] = {{KeyType::rsa2048, u"RSA, 2048 бита\nЕкспонента: 65537\nМодул:\n", 256},
                 {KeyType::p384, u"Елиптична крива, 384 бита\nКрива: P-384\nТочка:\n", 97},
                 {KeyType::dsa2048, u"DSA, 2048 бита\nКлюч:\n", 256}};
    for (const auto& [type, head, octets] : cases) {
        auto spec = Spec();
        spec.key = tests::TestKey(type);
        const auto made = tests::Issue(spec);
        CCertificateView view(tests::ContextOf(made));
        auto value = ValueOf(view, QStringLiteral("Публичен ключ"));
        const auto beginning = QString::fromUtf16(head);
        ASSERT_TRUE(value.startsWith(beginning)) << value.toStdString();
        const auto digits = value.mid(beginning.size()).remove(QRegularExpression(QStringLiteral("\\s"))).toUpper();
        EXPECT_GE(digits.size(), 2 * octets);
        EXPECT_TRUE(tests::Hex(made.PublicKeyInfo()).find(digits.toStdString()) != std::string::npos);
        EXPECT_EQ(Control<QTreeWidget>(view, "21").currentItem()->text(1).left(6), value.left(6)) << "in the list";
    }
}

TEST_F(CertificateView, WritesTheCertificateAsDerOrPemAndAsksBeforeItReplacesAFile) {
    const auto made = tests::Issue(Spec());
    CCertificateView view(tests::ContextOf(made));
    // Answers the question about the file's name, and a further window.
    const auto save = [&](const std::string& file, const std::function<void(QMessageBox&)>& next = {}) {
        const auto answer = [&](QWidget& window) {
            auto& dialog = dynamic_cast<QFileDialog&>(window);
            EXPECT_EQ(QFileInfo(dialog.selectedFiles().value(0)).fileName(), QStringLiteral("Иван Петров.cer"));
            auto& name = Control<QLineEdit>(dialog, "fileNameEdit");
            name.setText(QString::fromStdString(file));
            if (next)
                QTimer::singleShot(0, qApp,
                                   [=] { next(dynamic_cast<QMessageBox&>(*QApplication::activeModalWidget())); });
            QTest::keyClick(&name, Qt::Key_Return);
            if (dialog.isVisible()) dialog.reject();
        };
        Opened([&] { Control<QPushButton>(view, "12").click(); }, answer);
    };
    const auto in = [&](const char* name) { return (profile_.Folder() / name).string(); };
    save(in("x"));
    EXPECT_EQ(tests::ReadFile(in("x.cer")), platform::AsText(made.Der()));
    save(in("x.PEM"));
    EXPECT_EQ(tests::ReadFile(in("x.PEM")), made.Pem());

    profile_.Write("x.cer", "somebody's own");
    save(in("x"), [](QMessageBox& box) {
        Photograph(box, "certificate-replace");
        box.button(QMessageBox::No)->click();
    });
    EXPECT_EQ(tests::ReadFile(in("x.cer")), "somebody's own");
    QString told;
    save("/proc/x.cer", [&told](QMessageBox& box) {
        told = box.windowTitle() + QLatin1Char(' ') + box.text();
        box.accept();
    });
    EXPECT_TRUE(told.startsWith(QStringLiteral("Грешка /proc/x.cer\n"))) << told.toStdString();
}

// Certificates that were made to confuse their readers.
TEST_F(CertificateView, OpensEveryCertificateOfTheCorpus) {
    const std::filesystem::path corpus = NORVIK_SOURCE_DIR "/../shared/corpora/chains";
    if (!std::filesystem::exists(corpus)) GTEST_SKIP() << "no corpus beside the sources";
    int opened = 0;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(corpus)) {
        if (!entry.is_regular_file()) continue;
        for (const auto& block : tests::ReadPemFile(entry.path())) {
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

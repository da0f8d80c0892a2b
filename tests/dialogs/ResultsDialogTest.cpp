#include "dialogs/CResultsDlg.h"

#include <sys/stat.h>

#include <QFileDialog>
#include <QHeaderView>
#include <QLabel>
#include <QLineEdit>
#include <QMenu>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QTimer>
#include <QTreeWidget>

#include "dialogs/CColorListCtrl.h"
#include "dialogs/CSignatureTree.h"
#include "dialogs/QtInterface.h"
#include "tests/dialogs/DialogFixture.h"
#include "tests/toolkit/PeerMessages.h"

namespace {

namespace fs = std::filesystem;
using verification::SignatureEntries;
using verification::SignatureEntry;

class ResultsDialog : public tests::DialogFixture {
  protected:
    ResultsDialog() { profile_.Set("PATH", (profile_.Folder() / "bin").string() + ":" + getenv("PATH")); }

    static SignatureEntry Entry(const std::string& name, std::uint32_t level = 0) {
        auto entry = GoodEntry(name);
        entry.level = level;
        entry.signingTime = 1'709'287'200;
        entry.signingTimeText = u"2024-03-01 12:00:00";
        return entry;
    }
    static SignatureEntries OneOfEach() {
        SignatureEntries entries;
        for (const char* name : {"Иван Петров Димитров", "Мария Георгиева", "Стоян Колев"})
            entries.push_back(Entry(name));
        entries[0].comment = u"Съгласен съм с договора\nи с приложенията му.";
        entries[0].hasTimestamp = true;
        entries[0].timestampTimeText = u"2024-03-01 12:00:05";
        entries[0].profile = u"CAdES-BASELINE-T";
        entries[1].signStatus = 0x80096010;
        entries[1].signMessage = tessaly::StatusText(0x80096010);
        entries[2].certStatus = 0x80092012;
        entries[2].certMessage = tessaly::StatusText(0x80092012);
        entries[2].signingTime = 0;
        return entries;
    }
    // A file in the profile's folder that holds `text` signed by openssl.
    fs::path Signed(const std::string& name, const std::string& text) {
        testing_support::WritePem(profile_, "signer", tests::Issue({}));
        profile_.Write("content", text);
        return profile_.Write(name, platform::AsText(testing_support::OpenSslSign(profile_, {"-nodetach"})));
    }
    // What the desktop answers when it is asked to open a file: an exit status. The address goes into the file
    // "opened".
    void AnswerOpening(int status, const std::string& program = "viewer.desktop") {
        const auto opened = (profile_.Folder() / "opened").string();
        Program("xdg-open", "printf %s \"$1\" > " + opened + ".new; mv " + opened + ".new " + opened + "; exit " +
                                std::to_string(status));
        Program("xdg-mime", "echo " + program);
    }
    [[nodiscard]] bool WasOpened(const fs::path& file) const {
        const auto wanted = QUrl::fromLocalFile(QString::fromStdString(file.string())).toEncoded().toStdString();
        return QTest::qWaitFor([&] { return fs::exists(profile_.Folder() / "opened"); }) &&
               tests::ReadFile(profile_.Folder() / "opened") == wanted;
    }
    // Answers the box that comes next and says what it was: title and text. Runs its own loop until it is there.
    static std::string NextBox(const std::function<void()>& cause) {
        std::string said;
        QTimer poll;
        QObject::connect(&poll, &QTimer::timeout, &poll, [&] {
            auto* const box = QApplication::activeModalWidget();
            const auto* const label = box->findChild<QLabel*>(QStringLiteral("qt_msgbox_label"));
            if (label == nullptr) return;
            poll.stop();
            said = box->windowTitle().toStdString() + ": " + label->text().toStdString();
            Control<QPushButton>(*box, "1").click();
        });
        poll.start(1);
        cause();
        if (!QTest::qWaitFor([&] { return !said.empty(); })) said = "no box";
        return said;
    }
    static void DoubleClick(const QAbstractItemView& view, const QRect& item) {
        QTest::mouseClick(view.viewport(), Qt::LeftButton, {}, item.center());
        QTest::mouseDClick(view.viewport(), Qt::LeftButton, {}, item.center());
    }
    fs::path Work(const char* name) { return CNorvikApp::Current()->SessionFolder() / name; }

    static constexpr char kUnsafe[] =
        "Предупреждение: Отварянето на файлове от този тип не е безопасно!\nФайлът няма да бъде отворен.";
    static constexpr char kNotOpened[] = "Грешка: Файлът не може да бъде отворен!";
    static constexpr char kNoProgram[] = "Информация: Няма приложение асоциирано с този тип файлове.";

  private:
    void Program(const std::string& name, const std::string& script) {
        chmod(profile_.Write("bin/" + name, "#!/bin/sh\n" + script + "\n").c_str(), 0755);
    }
};

TEST_F(ResultsDialog, ShowsEachSignerWithStateTimeAndComment) {
    const auto entries = OneOfEach();
    WhenShown([](QDialog& shown) {
        auto& tree = Control<QTreeWidget>(shown, "233");
        ASSERT_EQ(tree.topLevelItemCount(), 3);
        const auto text = [&](int row, int column) { return tree.topLevelItem(row)->text(column).toStdString(); };
        EXPECT_EQ(text(0, 0), "Иван Петров Димитров (2024-03-01 12:00:05) CAdES-BASELINE-T");
        EXPECT_EQ(text(1, 0), "Мария Георгиева (2024-03-01 12:00:00) CAdES-BASELINE-B");
        EXPECT_EQ(text(2, 0), "Стоян Колев CAdES-BASELINE-B") << "no time of signing";
        EXPECT_EQ(text(0, 1), "Валиден");
        EXPECT_EQ(text(1, 1), "Невалиден");
        EXPECT_EQ(text(2, 1), "Непроверен");
        auto& comment = Control<QPlainTextEdit>(shown, "6104");
        EXPECT_TRUE(comment.isReadOnly());
        EXPECT_EQ(comment.toPlainText(), QStringLiteral("Съгласен съм с договора\nи с приложенията му."));
        EXPECT_FALSE(Control<QWidget>(shown, "240").isVisible()) << "one level";
        EXPECT_TRUE(Control<QPushButton>(shown, "202").isEnabled());
        Photograph(shown, "results-flat");
        QTest::keyClick(&tree, Qt::Key_Down);
        EXPECT_EQ(comment.toPlainText(), QString());
        Control<QPushButton>(shown, "1").click();
    });
    const auto file = Signed("договор.pdf.p7m", "%PDF-1.7\n");
    EXPECT_EQ(dialogs::QtInterface().ShowResults({entries, file, {}}), ui::ResultsAction::none);
}

TEST_F(ResultsDialog, MarksTheLevelOfTheSelectedItem) {
    SignatureEntries entries;
    for (const std::uint32_t level : {0U, 1U, 1U, 2U, 3U, 4U})
        entries.push_back(Entry("Подписал №" + std::to_string(entries.size() + 1), level));
    entries[4].comment = u"четвърто ниво";
    WhenShown([](QDialog& shown) {
        auto& tree = Control<QTreeWidget>(shown, "233");
        auto& comment = Control<QPlainTextEdit>(shown, "6104");
        const auto& legend = Control<QWidget>(shown, "240");
        ASSERT_EQ(tree.topLevelItemCount(), 5);
        EXPECT_EQ(tree.topLevelItem(1)->text(0), QStringLiteral("Ниво 2"));
        EXPECT_EQ(tree.topLevelItem(1)->childCount(), 2);
        EXPECT_EQ(tree.topLevelItem(3)->child(0)->text(0), QStringLiteral("Подписал №5 (2024-03-01 12:00:00)"));
        EXPECT_TRUE(legend.isVisible());
        tree.setCurrentItem(tree.topLevelItem(3)->child(0));
        EXPECT_EQ(legend.accessibleDescription(), QStringLiteral("Ниво 4 от 5"));
        EXPECT_EQ(comment.toPlainText(), QStringLiteral("четвърто ниво"));
        Photograph(shown, "results-five-levels");
        tree.setCurrentItem(tree.topLevelItem(4));
        EXPECT_EQ(legend.accessibleDescription(), QStringLiteral("Ниво 5 от 5"));
        EXPECT_EQ(comment.toPlainText(), QString());
        EXPECT_FALSE(Control<QPushButton>(shown, "201").isEnabled()) << "a level has no certificate";
        Control<QPushButton>(shown, "1").click();
    });
    CResultsDlg({entries, Signed("a.txt.p7m", "a"), {}}).Show();
}

TEST_F(ResultsDialog, SaysWhatAFileWithoutSignaturesIsAndPrintsNothingOfIt) {
    const SignatureEntries none;
    WhenShown([](QDialog& shown) {
        auto& tree = Control<QTreeWidget>(shown, "233");
        ASSERT_EQ(tree.topLevelItemCount(), 1);
        EXPECT_EQ(tree.topLevelItem(0)->text(0), QStringLiteral("Неподписан файл !"));
        EXPECT_FALSE(Control<QPushButton>(shown, "202").isEnabled());
        EXPECT_FALSE(Control<QWidget>(shown, "240").isVisible());
        Photograph(shown, "results-none");
        QTest::keyClick(&shown, Qt::Key_Escape);
    });
    CResultsDlg({none, "a.p7s", "a"}).Show();

    const auto entries = OneOfEach();
    WhenShown([](QDialog& shown) {
        auto& tree = Control<QTreeWidget>(shown, "233");
        EXPECT_EQ(tree.topLevelItemCount(), 4);
        EXPECT_EQ(tree.topLevelItem(0)->text(0), QStringLiteral("Криптиран файл. Алгоритъм: AES-256"));
        Photograph(shown, "results-encrypted");
        tree.setCurrentItem(tree.topLevelItem(0));
        EXPECT_FALSE(Control<QPushButton>(shown, "201").isEnabled());
        DoubleClick(tree, tree.visualItemRect(tree.topLevelItem(0)));
        EXPECT_EQ(QApplication::activeModalWidget(), &shown) << "no details of what is no signature";
        QTest::keyClick(&shown, Qt::Key_Escape);
    });
    CResultsDlg({entries, "a.p7s", "a", u"AES-256"}).Show();
}

TEST_F(ResultsDialog, OffersNoEditingOfAFileThatNobodyMayWrite) {
    const auto entries = OneOfEach();
    const auto file = Signed("a.txt.p7m", "a");
    WhenShown([](QDialog& shown) {
        auto& edit = Control<QPushButton>(shown, "272");
        EXPECT_EQ(edit.toolTip(), QStringLiteral("Добавяне на подпис или криптиране на текущия файл"));
        edit.click();
        auto& menu = Control<QMenu>(shown, "246");
        ASSERT_EQ(menu.actions().size(), 2);
        EXPECT_TRUE(menu.isVisible());
        for (auto* const item : menu.actions())
            EXPECT_FALSE(item->isEnabled() || item->toolTip() == item->text()) << item->text().toStdString();
        Photograph(menu, "results-menu");
        menu.close();
        menu.actions().at(1)->setEnabled(true);
        menu.actions().at(1)->trigger();
    });
    EXPECT_EQ(CResultsDlg({entries, file, {}}).Show(), ui::ResultsAction::encrypt);

    chmod(file.c_str(), 0444);
    WhenShown([](QDialog& shown) {
        auto& edit = Control<QPushButton>(shown, "272");
        EXPECT_FALSE(edit.isEnabled() || edit.isVisible());
        EXPECT_EQ(edit.toolTip(), QStringLiteral("Файлът не може да бъде редактиран!"));
        Photograph(shown, "results-read-only");
        Control<QPushButton>(shown, "1").click();
    });
    EXPECT_EQ(CResultsDlg({entries, file, {}}).Show(), ui::ResultsAction::none);
}

TEST_F(ResultsDialog, OpensTheContentOfAnAttachedSignatureFromAPlaceThatOthersCannotRead) {
    const auto entries = OneOfEach();
    const auto file = Signed("договор.TXT.p7m", "Съдържание.");
    AnswerOpening(0);
    WhenShown([&](QDialog& shown) {
        auto& list = Control<CColorListCtrl>(shown, "196");
        EXPECT_EQ(list.model()->index(0, 0).data().toString(), QStringLiteral("договор.TXT"));
        EXPECT_EQ(list.model()->index(0, 1).data().toString(), QStringLiteral("Документ с неформатиран текст"));
        list.setFocus();
        DoubleClick(list, list.visualRect(list.model()->index(0, 0)));
        EXPECT_TRUE(WasOpened(Work("договор.TXT")));
        EXPECT_EQ(shown.focusWidget()->objectName(), QStringLiteral("233"));
        QTest::keyClick(&shown, Qt::Key_Escape);
    });
    CResultsDlg({entries, file, {}}).Show();
    EXPECT_EQ(tests::ReadFile(Work("договор.TXT")), "Съдържание.");
    struct stat about {};
    ASSERT_EQ(stat(Work("договор.TXT").c_str(), &about), 0);
    EXPECT_EQ(about.st_mode & 0777U, 0600U);
}

TEST_F(ResultsDialog, NeverHandsOutTheContentOfASignatureThatDoesNotHold) {
    const auto entries = OneOfEach();
    const auto good = Signed("a.txt.p7m", "content");
    auto bytes = tests::ReadFile(good);
    bytes[bytes.find("content")] = 'C';
    const auto bad = profile_.Write("bad/a.txt.p7m", bytes);
    const auto target = profile_.Folder() / "saved.txt";
    AnswerOpening(0);

    WhenShown([](QDialog& shown) { Control<QPushButton>(shown, "1").click(); });
    CResultsDlg({entries, good, {}}).Show();
    ASSERT_TRUE(fs::exists(Work("a.txt")));

    CResultsDlg dialog({entries, bad, {}});
    const auto failed = "Грешка: Временният файл\n" + Work("a.txt").string() + "\nне може да бъде създаден!";
    EXPECT_EQ(NextBox([&] {
                  QTimer::singleShot(1000, [&] {
                      EXPECT_FALSE(fs::exists(Work("a.txt"))) << "the one of the good signature";
                      EXPECT_EQ(NextBox([&] { Control<QPushButton>(dialog, "192").click(); }), kNotOpened);
                      QTimer::singleShot(0, [&] {
                          auto& files = dynamic_cast<QFileDialog&>(*QApplication::activeModalWidget());
                          files.findChild<QLineEdit*>()->setText(QString::fromStdString(target.string()));
                          QMetaObject::invokeMethod(&files, "accept");
                      });
                      EXPECT_EQ(NextBox([&] { Control<QPushButton>(dialog, "193").click(); }),
                                "Грешка: Файлът\n" + target.string() + "\nне може да бъде съхранен!");
                      dialog.reject();
                  });
                  dialog.Show();
              }),
              failed);
    EXPECT_FALSE(fs::exists(target));
    EXPECT_FALSE(fs::exists(profile_.Folder() / "opened"));
}

TEST_F(ResultsDialog, AsksForAFileWithButtonsInItsOwnLanguage) {
    const auto file = profile_.Write("original.txt", "x");
    const auto answer = [&](bool accept) {
        QTimer::singleShot(0, [&, accept] {
            auto& files = dynamic_cast<QFileDialog&>(*QApplication::activeModalWidget());
            EXPECT_EQ(files.windowTitle(), QStringLiteral("Посочете оригинален файл"));
            EXPECT_EQ(files.labelText(QFileDialog::Accept), QStringLiteral("&Отвори"));
            EXPECT_EQ(files.labelText(QFileDialog::Reject), QStringLiteral("Отказ"));
            files.selectFile(QString::fromStdString(file.string()));
            const auto& list = Control<QTreeView>(files, "treeView");
            const auto says = [&](int column, const QString& text) {
                for (int row = 0; row < list.model()->rowCount(list.rootIndex()); ++row)
                    if (list.model()->index(row, column, list.rootIndex()).data().toString() == text) return true;
                return false;
            };
            EXPECT_TRUE(QTest::qWaitFor([&] { return says(1, QStringLiteral("1 байт")); })) << "the size of the file";
            EXPECT_TRUE(says(2, QStringLiteral("Папка")));
            EXPECT_TRUE(says(2, QStringLiteral("Документ с неформатиран текст")));
            Photograph(files, "open-file");
            QMetaObject::invokeMethod(&files, accept ? "accept" : "reject");
        });
        return dialogs::QtInterface().AskOpenFile({u"Посочете оригинален файл"});
    };
    EXPECT_EQ(answer(true), file);
    EXPECT_EQ(answer(false), std::nullopt);
}

TEST_F(ResultsDialog, SavesTheContentOrADetachedSignaturesData) {
    const auto entries = OneOfEach();
    const auto attached = Signed("in/a.txt.p7m", "attached");
    const auto data = profile_.Write("in/b.txt", "detached");
    const auto detached = profile_.Write("in/b.txt.P7S", "signature");
    const auto chosen = profile_.Write("elsewhere/original.txt", "chosen");
    struct Case {
        fs::path sign, data;
        const char *name, *saved;
    };
    for (const auto& [sign, file, name, saved] :
         {Case{attached, {}, "a.txt", "attached"}, Case{detached, data, "b.txt", "detached"},
          Case{detached, chosen, "original.txt", "chosen"}}) {
        const auto target = profile_.Write("out/target", "old");
        WhenShown([&](QDialog& shown) {
            QTimer::singleShot(0, [&] {
                auto& files = dynamic_cast<QFileDialog&>(*QApplication::activeModalWidget());
                EXPECT_EQ(files.windowTitle(), QStringLiteral("Save as"));
                EXPECT_EQ(files.nameFilters(), QStringList(QStringLiteral("Всички файлове (*)")));
                EXPECT_EQ(files.findChild<QLineEdit*>()->text(), QString::fromUtf8(name));
                files.setOption(QFileDialog::DontConfirmOverwrite);
                files.selectFile(QString::fromStdString(target.string()));
                QMetaObject::invokeMethod(&files, "accept");
            });
            Control<QPushButton>(shown, "193").click();
            Control<QPushButton>(shown, "1").click();
        });
        CResultsDlg({entries, sign, file}).Show();
        EXPECT_EQ(tests::ReadFile(target), saved) << sign;
    }
    EXPECT_EQ(tests::ReadFile(data), "detached");
}

TEST_F(ResultsDialog, RefusesToOpenWhatADesktopWouldRunAndTellsWhyAFileIsNotOpened) {
    const auto entries = OneOfEach();
    struct Case {
        const char *name, *content;
        int status;
        const char *program, *said;  // nothing said: it was opened
    };
    for (const auto& [name, content, status, program, said] :
         {Case{"x.vb", "text", 0, "", kUnsafe}, Case{"x.exe", "text", 0, "", kUnsafe}, Case{"x.EXE", "text", 0, "", ""},
          Case{"x.as", "text", 0, "", kUnsafe},
          Case{"x.desktop", "[Desktop Entry]\nType=Application\nExec=true\n", 0, "", kUnsafe},
          Case{"x.run", "#!/bin/sh\ntrue\n", 0, "", kUnsafe}, Case{"x.txt", "text", 3, "any", kNoProgram},
          Case{"x.txt", "text", 4, "", kNoProgram}, Case{"x.txt", "text", 4, "viewer.desktop", kNotOpened},
          Case{"x & y; $(z).txt", "text", 0, "", ""}}) {
        fs::remove(profile_.Folder() / "opened");
        AnswerOpening(status, program);
        const auto data = profile_.Write(fs::path("data") / name, content);
        WhenShown([&, said = std::string(said)](QDialog& shown) {
            const auto open = [&] { Control<QPushButton>(shown, "192").click(); };
            if (said.empty()) {
                open();
                EXPECT_TRUE(WasOpened(data)) << data;
            } else {
                EXPECT_EQ(NextBox(open), said) << data;
            }
            shown.reject();
        });
        CResultsDlg({entries, data.string() + ".p7s", data}).Show();
        EXPECT_EQ(fs::exists(profile_.Folder() / "opened"), said != std::string(kUnsafe)) << data;
    }
    WhenShown([&](QDialog& shown) {
        EXPECT_EQ(NextBox([&] { Control<QPushButton>(shown, "192").click(); }), kNotOpened) << "no such file";
        shown.reject();
    });
    CResultsDlg({entries, "gone.txt.p7s", "gone.txt"}).Show();
}

TEST_F(ResultsDialog, OpensWhatBelongsToTheSelectedSignature) {
    auto entries = OneOfEach();
    entries[1].certificate = nullptr;
    WhenShown([](QDialog& shown) {
        auto& tree = Control<QTreeWidget>(shown, "233");
        auto& certificate = Control<QPushButton>(shown, "201");
        const auto close = [](QWidget& window) { window.close(); };
        EXPECT_EQ(Opened([&] { certificate.click(); }, close), "Сертификат");
        EXPECT_EQ(shown.focusWidget(), &tree);
        EXPECT_EQ(Opened([&] { Control<QPushButton>(shown, "202").click(); }, close),
                  "ТЕСАЛИ Norvik - отпечатване на справка");
        tree.setCurrentItem(tree.topLevelItem(1));
        EXPECT_FALSE(certificate.isEnabled()) << "an entry without certificate";
        const auto look = [](QWidget& window) {
            EXPECT_EQ(Control<QLabel>(window, "225").text(), QStringLiteral("Стоян Колев"));
            window.close();
        };
        constexpr char details[] = "ТЕСАЛИ Norvik - детайли";
        EXPECT_EQ(Opened([&] { DoubleClick(tree, tree.visualItemRect(tree.topLevelItem(2))); }, look), details);
        EXPECT_EQ(tree.actions().value(0)->text(), QStringLiteral("&Детайли")) << "in its menu";
        EXPECT_EQ(Opened([&] { tree.actions().value(0)->trigger(); }, look), details);
        Control<QPushButton>(shown, "1").click();
    });
    CResultsDlg({entries, "a.p7s", "a"}).Show();
}

TEST_F(ResultsDialog, HoldsThirtySignersWithLongNamesThatStayTextOnOneLine) {
    SignatureEntries entries;
    for (int i = 0; i < 30; ++i)
        entries.push_back(Entry("Подписал с доста дълго име и няколко фамилии, №" + std::to_string(i + 1)));
    entries[0] = Entry("<b>А & Б</b>\n\xE2\x80\xAE" + std::string(200, 'x'));
    const auto file = Signed(std::string(200, 'y') + ".pdf.p7m", "%PDF-1.7\n");
    WhenShown([](QDialog& shown) {
        auto& tree = Control<CSignatureTree>(shown, "233");
        EXPECT_EQ(tree.topLevelItemCount(), 30);
        EXPECT_LT(shown.width(), 1000);
        const auto text = tree.topLevelItem(0)->text(0);
        EXPECT_FALSE(text.contains(QLatin1Char('\n')) || text.contains(QChar(0x202E))) << text.toStdString();
        const auto tip = tree.ToolTipAt(tree.visualItemRect(tree.topLevelItem(0)).center());
        EXPECT_TRUE(tip.contains(QStringLiteral("&lt;b&gt;А &amp; Б&lt;/b&gt;"))) << tip.toStdString();
        Photograph(shown, "results-thirty");
        Control<QPushButton>(shown, "1").click();
    });
    CResultsDlg({entries, file, {}}).Show();
}

TEST_F(ResultsDialog, EveryControlIsReachedByTabAndByAnAltKeyOfItsOwnAndHasAName) {
    const auto entries = OneOfEach();
    const auto file = Signed("a.txt.p7m", "a");
    WhenShown([](QDialog& shown) {
        ExpectKeyboard(shown, QStringLiteral("233 201 202 272 196 192 193 6104 1"), 8);
        for (const char* id : {"192", "193", "196", "201", "202", "233"})
            EXPECT_FALSE(Control<QWidget>(shown, id).toolTip().isEmpty()) << id;
        QTest::keyClick(&Control<QTreeWidget>(shown, "233"), Qt::Key_Return);
        EXPECT_FALSE(shown.isVisible()) << "Enter is OK";
    });
    CResultsDlg({entries, file, {}}).Show();
}

}  // namespace

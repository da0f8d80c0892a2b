#include "dialogs/CResultsDlg.h"

#include <sys/stat.h>

#include "dialogs/CColorListCtrl.h"
#include "dialogs/CSignatureTree.h"
#include "dialogs/QtInterface.h"
#include "tests/dialogs/DialogFixture.h"
#include "tests/toolkit/PeerMessages.h"

namespace {

namespace fs = std::filesystem;
using namespace tests;
using testing::ElementsAre;
using verification::SignatureEntries;
using verification::SignatureEntry;

class ResultsDialog : public DialogFixture {
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
        testing_support::WritePem(profile_, "signer", Issue({}));
        profile_.Write("content", text);
        return profile_.Write(name, platform::AsText(testing_support::OpenSslSign(profile_, {"-nodetach"})));
    }
    // What the desktop answers when it is asked to open a file: an exit status. The address goes into the file
    // "opened".
    void AnswerOpening(int status, const std::string& program = "viewer.desktop") {
        Program("xdg-open", "printf %s \"$1\" > " + opened_ + ".new; mv " + opened_ + ".new " + opened_ + "; exit " +
                                std::to_string(status));
        Program("xdg-mime", "echo " + program);
    }
    [[nodiscard]] bool WasOpened(const fs::path& file) const {
        const auto wanted = QUrl::fromLocalFile(QString::fromStdString(file.string())).toEncoded().toStdString();
        return QTest::qWaitFor([&] { return fs::exists(opened_); }) && ReadFile(opened_) == wanted;
    }
    // Shows the results; `step` ends the window.
    static ui::ResultsAction Show(const ui::ResultsQuestion& question, std::function<void(QDialog&)> step) {
        WhenShown(std::move(step));
        return CResultsDlg(question).Show();
    }
    static fs::path Work(const char* name) { return CNorvikApp::Current()->SessionFolder() / name; }

    static constexpr char kUnsafe[] =
        "Предупреждение: Отварянето на файлове от този тип не е безопасно!\nФайлът няма да бъде отворен.";
    static constexpr char kNotOpened[] = "Грешка: Файлът не може да бъде отворен!";
    static constexpr char kNoProgram[] = "Информация: Няма приложение асоциирано с този тип файлове.";
    const SignatureEntries entries_ = OneOfEach();
    const std::string opened_ = (profile_.Folder() / "opened").string();

  private:
    void Program(const std::string& name, const std::string& script) {
        chmod(profile_.Write("bin/" + name, "#!/bin/sh\n" + script + "\n").c_str(), 0755);
    }
};

TEST_F(ResultsDialog, ShowsEachSignerWithStateTimeAndCommentAndIsWorkedFromTheKeyboard) {
    WhenShown([](QDialog& shown) {
        EXPECT_THAT(Rows(shown, "233"),
                    ElementsAre("Иван Петров Димитров (2024-03-01 12:00:05) CAdES-BASELINE-T|Валиден",
                                "Мария Георгиева (2024-03-01 12:00:00) CAdES-BASELINE-B|Невалиден",
                                "Стоян Колев CAdES-BASELINE-B|Непроверен"));
        EXPECT_TRUE(Control<QPlainTextEdit>(shown, "6104").isReadOnly());
        EXPECT_EQ(Text(shown, "6104"), "Съгласен съм с договора\nи с приложенията му.");
        EXPECT_FALSE(Control(shown, "240").isVisible()) << "one level";
        Photograph(shown, "results-flat");
        ExpectKeyboard(shown, u"233 201 202 272 196 192 193 6104 1"_s, 8);
        for (const char* id : {"192", "193", "196", "201", "202", "233"})
            EXPECT_FALSE(Control(shown, id).toolTip().isEmpty()) << id;
        QTest::keyClick(&Control(shown, "233"), Qt::Key_Down);
        EXPECT_EQ(Text(shown, "6104"), "");
        QTest::keyClick(&Control(shown, "233"), Qt::Key_Return);
        EXPECT_FALSE(shown.isVisible()) << "Enter is OK";
    });
    const auto file = Signed("договор.pdf.p7m", "%PDF-1.7\n");
    EXPECT_EQ(dialogs::QtInterface().ShowResults({entries_, file, {}}), ui::ResultsAction::none);
}

TEST_F(ResultsDialog, MarksTheLevelOfTheSelectedItem) {
    SignatureEntries entries;
    for (const std::uint32_t level : {0U, 1U, 1U, 2U, 3U, 4U})
        entries.push_back(Entry("Подписал №" + std::to_string(entries.size() + 1), level));
    entries[4].comment = u"четвърто ниво";
    Show({entries, Signed("a.txt.p7m", "a"), {}}, [](QDialog& shown) {
        auto& tree = Control<QTreeWidget>(shown, "233");
        const auto& legend = Control(shown, "240");
        ASSERT_EQ(tree.topLevelItemCount(), 5);
        EXPECT_EQ(tree.topLevelItem(1)->text(0), u"Ниво 2"_s);
        EXPECT_EQ(tree.topLevelItem(1)->childCount(), 2);
        EXPECT_EQ(tree.topLevelItem(3)->child(0)->text(0), u"Подписал №5 (2024-03-01 12:00:00)"_s);
        EXPECT_TRUE(legend.isVisible());
        tree.setCurrentItem(tree.topLevelItem(3)->child(0));
        EXPECT_EQ(legend.accessibleDescription(), u"Ниво 4 от 5"_s);
        EXPECT_EQ(Text(shown, "6104"), "четвърто ниво");
        Photograph(shown, "results-five-levels");
        tree.setCurrentItem(tree.topLevelItem(4));
        EXPECT_EQ(legend.accessibleDescription(), u"Ниво 5 от 5"_s);
        EXPECT_EQ(Text(shown, "6104"), "");
        EXPECT_FALSE(Control(shown, "201").isEnabled()) << "a level has no certificate";
        Click(shown, "1");
    });
}

TEST_F(ResultsDialog, SaysWhatAFileWithoutSignaturesIsAndPrintsNothingOfIt) {
    const SignatureEntries none;
    Show({none, "a.p7s", "a"}, [](QDialog& shown) {
        EXPECT_THAT(Rows(shown, "233"), ElementsAre("Неподписан файл !|"));
        EXPECT_FALSE(Control(shown, "202").isEnabled());
        EXPECT_FALSE(Control(shown, "240").isVisible());
        Photograph(shown, "results-none");
        QTest::keyClick(&shown, Qt::Key_Escape);
    });
    Show({entries_, "a.p7s", "a", u"AES-256"}, [](QDialog& shown) {
        auto& tree = Control<QTreeWidget>(shown, "233");
        EXPECT_EQ(Rows(shown, "233").at(0), "Криптиран файл. Алгоритъм: AES-256|");
        EXPECT_EQ(tree.topLevelItemCount(), 4);
        Photograph(shown, "results-encrypted");
        tree.setCurrentItem(tree.topLevelItem(0));
        EXPECT_FALSE(Control(shown, "201").isEnabled());
        DoubleClick(tree, 0);
        EXPECT_EQ(QApplication::activeModalWidget(), &shown) << "no details of what is no signature";
        QTest::keyClick(&shown, Qt::Key_Escape);
    });
}

TEST_F(ResultsDialog, OffersNoEditingOfAFileThatNobodyMayWrite) {
    const auto file = Signed("a.txt.p7m", "a");
    const auto encrypts = Show({entries_, file, {}}, [](QDialog& shown) {
        EXPECT_EQ(Control(shown, "272").toolTip(), u"Добавяне на подпис или криптиране на текущия файл"_s);
        Click(shown, "272");
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
    EXPECT_EQ(encrypts, ui::ResultsAction::encrypt);

    chmod(file.c_str(), 0444);
    const auto closes = Show({entries_, file, {}}, [](QDialog& shown) {
        const auto& edit = Control(shown, "272");
        EXPECT_FALSE(edit.isEnabled() || edit.isVisible());
        EXPECT_EQ(edit.toolTip(), u"Файлът не може да бъде редактиран!"_s);
        Photograph(shown, "results-read-only");
        Click(shown, "1");
    });
    EXPECT_EQ(closes, ui::ResultsAction::none);
}

TEST_F(ResultsDialog, OpensTheContentOfAnAttachedSignatureFromAPlaceThatOthersCannotRead) {
    AnswerOpening(0);
    Show({entries_, Signed("договор.TXT.p7m", "Съдържание."), {}}, [&](QDialog& shown) {
        EXPECT_THAT(Rows(shown, "196"), ElementsAre("договор.TXT|Документ с неформатиран текст"));
        auto& list = Control<CColorListCtrl>(shown, "196");
        list.setFocus();
        DoubleClick(list, 0);
        EXPECT_TRUE(WasOpened(Work("договор.TXT")));
        EXPECT_EQ(shown.focusWidget()->objectName(), u"233"_s);
        QTest::keyClick(&shown, Qt::Key_Escape);
    });
    EXPECT_EQ(ReadFile(Work("договор.TXT")), "Съдържание.");
    EXPECT_EQ(fs::status(Work("договор.TXT")).permissions(), fs::perms(0600));
}

TEST_F(ResultsDialog, NeverHandsOutTheContentOfASignatureThatDoesNotHold) {
    const auto good = Signed("a.txt.p7m", "content");
    auto bytes = ReadFile(good);
    bytes[bytes.find("content")] = 'C';
    const auto bad = profile_.Write("bad/a.txt.p7m", bytes), target = profile_.Folder() / "saved.txt";
    AnswerOpening(0);
    Show({entries_, good, {}}, [](QDialog& shown) { Click(shown, "1"); });
    ASSERT_TRUE(fs::exists(Work("a.txt")));

    CResultsDlg dialog({entries_, bad, {}});
    const auto look = [&] {
        EXPECT_FALSE(fs::exists(Work("a.txt"))) << "the one of the good signature";
        EXPECT_EQ(Said([&] { Click(dialog, "192"); }), kNotOpened);
        EXPECT_EQ(Said([&] { ChooseFile([&] { Click(dialog, "193"); }, target); }),
                  "Грешка: Файлът\n" + target.string() + "\nне може да бъде съхранен!");
        dialog.reject();
    };
    const auto show = [&] {
        QTimer::singleShot(1000, look);
        dialog.Show();
    };
    EXPECT_EQ(Said(show), "Грешка: Временният файл\n" + Work("a.txt").string() + "\nне може да бъде създаден!");
    EXPECT_FALSE(fs::exists(target));
    EXPECT_FALSE(fs::exists(opened_));
}

TEST_F(ResultsDialog, AsksForAFileWithButtonsInItsOwnLanguage) {
    const auto file = profile_.Write("original.txt", "x");
    std::optional<fs::path> chosen;
    const auto ask = [&] { chosen = dialogs::QtInterface().AskOpenFile({u"Посочете оригинален файл"}); };
    const auto look = [&](QFileDialog& files) {
        EXPECT_EQ(files.labelText(QFileDialog::Accept), u"&Отвори"_s);
        EXPECT_EQ(files.labelText(QFileDialog::Reject), u"Отказ"_s);
        files.selectFile(QString::fromStdString(file.string()));
        const auto& list = Control<QTreeView>(files, "treeView");
        const auto says = [&](int column, const QString& text) {
            for (int row = 0; row < list.model()->rowCount(list.rootIndex()); ++row)
                if (list.model()->index(row, column, list.rootIndex()).data().toString() == text) return true;
            return false;
        };
        EXPECT_TRUE(QTest::qWaitFor([&] { return says(1, u"1 байт"_s); })) << "the size of the file";
        EXPECT_TRUE(says(2, u"Папка"_s));
        EXPECT_TRUE(says(2, u"Документ с неформатиран текст"_s));
        Photograph(files, "open-file");
    };
    EXPECT_EQ(ChooseFile(ask, file, look), "Посочете оригинален файл");
    EXPECT_EQ(chosen, file);
    Opened<QFileDialog>(ask, [](QFileDialog& files) { files.reject(); });
    EXPECT_EQ(chosen, std::nullopt);
}

TEST_F(ResultsDialog, SavesTheContentOrADetachedSignaturesData) {
    const auto attached = Signed("in/a.txt.p7m", "attached"), data = profile_.Write("in/b.txt", "detached"),
               detached = profile_.Write("in/b.txt.P7S", "signature"),
               chosen = profile_.Write("elsewhere/original.txt", "chosen");
    struct Case {
        fs::path sign, data;
        const char *name, *saved;
    };
    for (const auto& [sign, file, name, saved] :
         {Case{attached, {}, "a.txt", "attached"}, Case{detached, data, "b.txt", "detached"},
          Case{detached, chosen, "original.txt", "chosen"}}) {
        const auto target = profile_.Write("out/target", "old");
        Show({entries_, sign, file}, [&, name = name](QDialog& shown) {
            const auto look = [&](QFileDialog& files) {
                EXPECT_EQ(files.nameFilters(), QStringList(u"Всички файлове (*)"_s));
                EXPECT_EQ(Text(files, "fileNameEdit"), name);
                files.setOption(QFileDialog::DontConfirmOverwrite);
            };
            EXPECT_EQ(ChooseFile([&] { Click(shown, "193"); }, target, look), "Save as");
            Click(shown, "1");
        });
        EXPECT_EQ(ReadFile(target), saved) << sign;
    }
    EXPECT_EQ(ReadFile(data), "detached");
    for (const auto& [sign, file, target] : {std::array{attached, fs::path(), attached},
                                             std::array{detached, data, detached}, std::array{detached, data, data}}) {
        const auto before = ReadFile(target);
        Show({entries_, sign, file}, [&, target = target](QDialog& shown) {
            const auto overwrite = [](QFileDialog& files) { files.setOption(QFileDialog::DontConfirmOverwrite); };
            const auto save = [&] { ChooseFile([&] { Click(shown, "193"); }, target, overwrite); };
            EXPECT_THAT(Said(save), HasSubstr("не може да бъде съхранен")) << "it would replace what it is taken from";
            Click(shown, "1");
        });
        EXPECT_EQ(ReadFile(target), before);
    }
}

TEST_F(ResultsDialog, RefusesToOpenWhatADesktopWouldRunAndTellsWhyAFileIsNotOpened) {
    const struct {
        const char *name, *content;
        int status;
        const char *program, *said;  // nothing said: it was opened
    } cases[] = {{"x.vb", "text", 0, "", kUnsafe},
                 {"x.exe", "text", 0, "", kUnsafe},
                 {"x.EXE", "text", 0, "", ""},
                 {"x.as", "text", 0, "", kUnsafe},
                 {"x.desktop", "[Desktop Entry]\nType=Application\nExec=true\n", 0, "", kUnsafe},
                 {"x.run", "#!/bin/sh\ntrue\n", 0, "", kUnsafe},
                 {"x.txt", "text", 3, "any", kNoProgram},
                 {"x.txt", "text", 4, "", kNoProgram},
                 {"x.txt", "text", 4, "viewer.desktop", kNotOpened},
                 {"x & y; $(z).txt", "text", 0, "", ""}};
    for (const auto& [name, content, status, program, said] : cases) {
        fs::remove(opened_);
        AnswerOpening(status, program);
        const auto data = profile_.Write(fs::path("data") / name, content);
        Show({entries_, data.string() + ".p7s", data}, [&, said = std::string(said)](QDialog& shown) {
            const auto open = [&] { Click(shown, "192"); };
            if (said.empty()) {
                open();
                EXPECT_TRUE(WasOpened(data)) << data;
            } else {
                EXPECT_EQ(Said(open), said) << data;
            }
            shown.reject();
        });
        EXPECT_EQ(fs::exists(opened_), said != std::string(kUnsafe)) << data;
    }
    Show({entries_, "gone.txt.p7s", "gone.txt"}, [&](QDialog& shown) {
        EXPECT_EQ(Said([&] { Click(shown, "192"); }), kNotOpened) << "no such file";
        shown.reject();
    });
}

TEST_F(ResultsDialog, OpensWhatBelongsToTheSelectedSignature) {
    auto entries = OneOfEach();
    entries[1].certificate = nullptr;
    Show({entries, "a.p7s", "a"}, [](QDialog& shown) {
        auto& tree = Control<QTreeWidget>(shown, "233");
        const auto close = [](QWidget& window) { window.close(); };
        EXPECT_EQ(Opened([&] { Click(shown, "201"); }, close), "Сертификат");
        EXPECT_EQ(shown.focusWidget(), &tree);
        EXPECT_EQ(Opened([&] { Click(shown, "202"); }, close), "ТЕСАЛИ Norvik - отпечатване на справка");
        tree.setCurrentItem(tree.topLevelItem(1));
        EXPECT_FALSE(Control(shown, "201").isEnabled()) << "an entry without certificate";
        const auto look = [](QWidget& window) {
            EXPECT_EQ(Text(window, "225"), "Стоян Колев");
            window.close();
        };
        constexpr char details[] = "ТЕСАЛИ Norvik - детайли";
        EXPECT_EQ(Opened([&] { DoubleClick(tree, 2); }, look), details);
        EXPECT_EQ(tree.actions().value(0)->text(), u"&Детайли"_s) << "in its menu";
        EXPECT_EQ(Opened([&] { tree.actions().value(0)->trigger(); }, look), details);
        Click(shown, "1");
    });
}

TEST_F(ResultsDialog, HoldsThirtySignersWithLongNamesThatStayTextOnOneLine) {
    SignatureEntries entries;
    for (int i = 0; i < 30; ++i)
        entries.push_back(Entry("Подписал с доста дълго име и няколко фамилии, №" + std::to_string(i + 1)));
    entries[0] = Entry("<b>А & Б</b>\n\xE2\x80\xAE" + std::string(200, 'x'));
    Show({entries, Signed(std::string(200, 'y') + ".pdf.p7m", "%PDF-1.7\n"), {}}, [](QDialog& shown) {
        auto& tree = Control<CSignatureTree>(shown, "233");
        EXPECT_EQ(tree.topLevelItemCount(), 30);
        EXPECT_LT(shown.width(), 1000);
        const auto text = tree.topLevelItem(0)->text(0);
        EXPECT_FALSE(text.contains(u'\n') || text.contains(QChar(0x202E))) << text.toStdString();
        EXPECT_THAT(tree.ToolTipAt(Middle(tree, 0)).toStdString(), HasSubstr("&lt;b&gt;А &amp; Б&lt;/b&gt;"));
        Photograph(shown, "results-thirty");
        Click(shown, "1");
    });
}

}  // namespace

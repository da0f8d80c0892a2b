// What goes wrong around the command: every case has a message that says what to do, the input stays as it was and
// nothing half-written is left.

#include <sys/stat.h>
#include <unistd.h>

#include "tests/tools/CommandTest.h"

namespace {

using namespace tests;

class BadInputTest : public CommandTest {
  protected:
    BadInputTest() {
        pki_.Install(profile_);
        Document("a.txt");
    }
    // Modes bind root too, once it has given up the right to pass them by.
    static std::string BoundByModes() {
        constexpr auto rights = "-dac_override,-dac_read_search";
        return geteuid() == 0 ? std::string("setpriv --bounding-set ") + rights + " --inh-caps " + rights : "env";
    }
};

TEST_F(BadInputTest, FilesThatCannotBeReadAreToldAndTheOthersSigned) {
    Document("empty.txt", "");
    Document("secret.txt", "not for reading");
    ASSERT_EQ(Shell("mkdir folder && mkfifo pipe && chmod 0 secret.txt").status, 0);
    Walk({{"folder missing.txt secret.txt pipe a.txt empty.txt",
           1,
           {"=a.txt.p7m\nempty.txt.p7m\n", "folder: не може да се прочете. Това е папка, а не файл.",
            "Файлът за подписване не съществува!!!\nmissing.txt: не е подписан.",
            "secret.txt: не може да се прочете. Достъпът е отказан.",
            "pipe: не може да се прочете. Това не е обикновен файл."}}},
         BoundByModes() + " norvik sign ");
    EXPECT_EQ(AcceptedContent("empty.txt.p7m"), "");
}

TEST_F(BadInputTest, FoldersThatCannotBeWrittenAreTold) {
    Document("locked/b.txt");
    Document("a-file");
    ASSERT_EQ(chmod("locked", 0500), 0);
    Walk({{"locked/b.txt", 1, {"locked/b.txt: не е подписан. Достъпът е отказан."}},
          {"a.txt --output-folder locked", 1, {"a.txt: не е подписан. Достъпът е отказан."}},
          {"a.txt --output-folder locked/new", 1, {"не може да се създаде. Достъпът е отказан."}},
          {"a.txt --output-folder no/parent", 1, {"не може да се създаде. Няма такава папка."}},
          {"a.txt --output-folder a-file", 1, {"Има файл с това име."}}},
         BoundByModes() + " norvik sign ");
    chmod("locked", 0700);
    EXPECT_THAT(FilesIn("locked"), ElementsAre("b.txt"));
    EXPECT_THAT(FilesIn(), ElementsAre("a-file", "a.txt", "locked"));
}

TEST_F(BadInputTest, AFullDiskLeavesTheOldResultAndNoHalfOfTheNew) {
    Document("big.bin", std::string(300'000, 'x'));
    Document("big.bin.p7m", "the old result");
    Walk({{"ulimit -f 64; norvik sign big.bin", 1, {"big.bin: не е подписан. Файлът би надхвърлил"}},
          {"norvik sign big.bin --output-folder disk && (ulimit -f 64; norvik extract disk/big.bin.p7m --output x)",
           1,
           {"x: не е записан. Файлът би надхвърлил"}},
          {"rm -r disk; norvik store list > /dev/full", 1}},  // what was not written was not done
         "");
    fs::create_directory("disk");
    const std::string mount = "mount -t tmpfs -o size=128k none disk", own = "unshare -Urm sh -c '" + mount;
    if (Shell(own + "'").status == 0)
        Walk({{" && cp a.txt disk/ && norvik sign big.bin --output-folder disk; s=$?; ls -A disk; exit $s'",
               1,
               {"big.bin: не е подписан. Няма място на диска.", "=a.txt\n"}}},
             own);
    EXPECT_EQ(ReadFile("big.bin.p7m"), "the old result");
    EXPECT_THAT(FilesIn(), ElementsAre("a.txt", "big.bin", "big.bin.p7m", "disk"));
}

TEST_F(BadInputTest, DamagedSettingsAreLeftAloneAndToldWhereDefaultsCount) {
    const std::string garbage(5000, '#'), damaged = "Файлът с настройките е повреден.";
    const auto file = profile_.Write("config/norvik/registry.db", garbage);
    Walk({{"sign a.txt", 0, {damaged}},
          {"settings get Verification HashAlg", 0, {damaged}},
          {"settings list", 0, {damaged}},
          {"tsa list", 0, {damaged}},
          {"settings set Verification HashAlg SHA1", 1, {damaged}},
          {"tsa add Име https://tsa.example/", 1, {damaged}}});
    EXPECT_EQ(AcceptedContent("a.txt.p7m"), "words");
    EXPECT_EQ(ReadFile(file), garbage);
}

TEST_F(BadInputTest, WithoutAHomeFolderNothingIsKeptAndThatIsTold) {
    Document("root.cer", pki_.root.Der());
    Walk({{"settings get Verification HashAlg", 0, {"=SHA256\n"}},
          {"settings set Verification HashAlg SHA1", 1, {"Няма такава папка."}},
          {"store import root.cer --store ROOT", 1, {"Няма такава папка."}},
          {"sign a.txt", 1, {"Няма валиден сертификат"}}},
         "env -u HOME -u XDG_DATA_HOME -u XDG_CONFIG_HOME norvik ");
}

TEST_F(BadInputTest, ATempFolderThatOthersCanWriteIsNotUsed) {
    const auto shared = profile_.Folder() / "shared";
    fs::create_directory(shared);
    ASSERT_EQ(chmod(shared.c_str(), 0777), 0);
    ASSERT_TRUE(geteuid() != 0 || chown(shared.c_str(), 65534, 65534) == 0);
    profile_.Set("TMPDIR", shared);
    Walk({{"sign a.txt", 0}, {"verify a.txt", 1, {"Причината не е записана"}}});
    EXPECT_EQ(AcceptedContent("a.txt.p7m"), "words");
    EXPECT_THAT(FilesIn(shared), IsEmpty());
    EXPECT_THAT(FilesIn(), ElementsAre("a.txt", "a.txt.p7m"));
}

// Bytes that are no text must not get another file signed: the one that it becomes when its bad byte is replaced.
TEST_F(BadInputTest, ANameThatIsNoTextNeverGetsAnotherFileSigned) {
    const std::string wanted = "act\xFF.txt", other = "act\uFFFD.txt";
    for (const auto& name : {wanted, other, std::string("act\n.txt")})
        Document(name);
    Walk({{wanted + " 'act\n.txt'", 1, {wanted + ": името на файла не е в UTF-8"}},
          {"--output-folder out\xFF " + other, 2}},
         "norvik sign ");
    EXPECT_THAT(FilesIn(), ElementsAre("a.txt", "act\n.txt", "act\n.txt.p7m", other, wanted));
}

TEST_F(BadInputTest, ASignalThatEndsTheCommandLeavesNoSessionFolder) {
    Walk({{"mkfifo pipe; exec 3<>pipe; norvik sign a.txt --pin-stdin <&3 & p=$!;"
           " until ls -d $TMPDIR/Norvik/*-*; do sleep 0.02; done; kill $p; wait $p; ls -d $TMPDIR/Norvik/*-*",
           2}},
         "");
}

}  // namespace

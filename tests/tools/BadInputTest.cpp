// What goes wrong around the command: every case has a message that says what to do, the input stays as it was and
// nothing half-written is left.

#include <sys/stat.h>
#include <unistd.h>

#include <fstream>

#include "tests/tools/CommandTest.h"

namespace {

namespace fs = std::filesystem;
using namespace tests;
using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

class BadInputTest : public CommandTest {
  protected:
    BadInputTest() {
        pki_.Install(profile_);
        Document("a.txt", "words");
    }
    // Modes bind root too, once it has given up the right to pass them by.
    static std::vector<std::string> BoundByModes() {
        if (geteuid() != 0) return {"env"};
        return {"setpriv", "--bounding-set", "-dac_override,-dac_read_search", "--inh-caps",
                "-dac_override,-dac_read_search"};
    }
};

TEST_F(BadInputTest, FilesThatCannotBeReadAreToldAndTheOthersSigned) {
    Document("empty.txt", "");
    Document("secret.txt", "not for reading");
    fs::create_directory(Documents() / "folder");
    ASSERT_EQ(mkfifo((Documents() / "pipe").c_str(), 0600), 0);
    ASSERT_EQ(chmod((Documents() / "secret.txt").c_str(), 0), 0);
    const auto result =
        RunBelow(BoundByModes(), {"sign", "folder", "missing.txt", "secret.txt", "pipe", "a.txt", "empty.txt"});
    EXPECT_EQ(result.status, 1) << result.Summary();
    EXPECT_EQ(result.output, "a.txt.p7m\nempty.txt.p7m\n");
    EXPECT_THAT(result.errors, AllOf(HasSubstr("folder: не може да се прочете. Това е папка, а не файл."),
                                     HasSubstr("Файлът за подписване не съществува!!!\nmissing.txt: не е подписан."),
                                     HasSubstr("secret.txt: не може да се прочете. Достъпът е отказан."),
                                     HasSubstr("pipe: не може да се прочете. Това не е обикновен файл.")));
    EXPECT_EQ(AcceptedContent("empty.txt.p7m"), "");
}

TEST_F(BadInputTest, FoldersThatCannotBeWrittenAreTold) {
    fs::create_directory(Documents() / "locked");
    Document("locked/b.txt", "words");
    Document("a-file");
    ASSERT_EQ(chmod((Documents() / "locked").c_str(), 0500), 0);
    const std::pair<std::vector<std::string>, const char*> cases[] = {
        {{"sign", "locked/b.txt"}, "locked/b.txt: не е подписан. Достъпът е отказан."},
        {{"sign", "a.txt", "--output-folder", "locked"}, "a.txt: не е подписан. Достъпът е отказан."},
        {{"sign", "a.txt", "--output-folder", "locked/new"}, "не може да се създаде. Достъпът е отказан."},
        {{"sign", "a.txt", "--output-folder", "no/parent"}, "не може да се създаде. Няма такава папка."},
        {{"sign", "a.txt", "--output-folder", "a-file"}, "Има файл с това име."}};
    for (const auto& [arguments, told] : cases) {
        const auto result = RunBelow(BoundByModes(), arguments);
        EXPECT_EQ(result.status, 1) << result.Summary();
        EXPECT_THAT(result.errors, HasSubstr(told));
    }
    chmod((Documents() / "locked").c_str(), 0700);
    EXPECT_THAT(FilesIn(Documents() / "locked"), ElementsAre("b.txt"));
    EXPECT_THAT(FilesIn(Documents()), ElementsAre("a-file", "a.txt", "locked"));
}

TEST_F(BadInputTest, AFullDiskLeavesTheOldResultAndNoHalfOfTheNew) {
    Document("big.bin", std::string(300'000, 'x'));
    Document("big.bin.p7m", "the old result");
    const std::vector<std::string> limited{"sh", "-c", "ulimit -f 64; \"$@\"", "sh"};
    const auto tooBig = RunBelow(limited, {"sign", "big.bin"});
    EXPECT_EQ(tooBig.status, 1) << tooBig.Summary();
    EXPECT_THAT(tooBig.errors, HasSubstr("big.bin: не е подписан. Файлът би надхвърлил"));

    fs::create_directory(Documents() / "disk");
    const std::string onSmallDisk =
        "mount -t tmpfs -o size=128k none disk && cp a.txt disk/ && \"$@\"; s=$?; ls -A disk; exit $s";
    if (RunProgram({"unshare", "-Urm", "mount", "-t", "tmpfs", "none", "disk"}, {.folder = Documents()}).status == 0) {
        const auto full = RunBelow({"unshare", "-Urm", "sh", "-c", onSmallDisk, "sh"},
                                   {"sign", "big.bin", "--output-folder", "disk"});
        EXPECT_EQ(full.status, 1) << full.Summary();
        EXPECT_THAT(full.errors, HasSubstr("big.bin: не е подписан. Няма място на диска."));
        EXPECT_EQ(full.output, "a.txt\n");
    }
    EXPECT_EQ(ReadFile(Documents() / "big.bin.p7m"), "the old result");
    EXPECT_THAT(FilesIn(Documents()), ElementsAre("a.txt", "big.bin", "big.bin.p7m", "disk"));

    const auto verdict = RunBelow({"sh", "-c", "\"$@\" > /dev/full", "sh"}, {"store", "list"});
    EXPECT_EQ(verdict.status, 1) << "what was not written was not done";
}

TEST_F(BadInputTest, DamagedSettingsAreLeftAloneAndToldWhereDefaultsCount) {
    const std::string garbage(5000, '#');
    const auto file = profile_.Write("config/norvik/registry.db", garbage);
    const std::string damaged = "Файлът с настройките е повреден.";
    Walk({{{"sign", "a.txt"}, 0, damaged},
          {{"settings", "get", "Verification", "HashAlg"}, 0, damaged},
          {{"settings", "list"}, 0, damaged},
          {{"tsa", "list"}, 0, damaged},
          {{"settings", "set", "Verification", "HashAlg", "SHA1"}, 1, damaged},
          {{"tsa", "add", "Име", "https://tsa.example/"}, 1, damaged}});
    EXPECT_EQ(AcceptedContent("a.txt.p7m"), "words");
    EXPECT_EQ(ReadFile(file), garbage);
}

TEST_F(BadInputTest, WithoutAHomeFolderNothingIsKeptAndThatIsTold) {
    const std::vector<std::string> homeless{"env", "-u", "HOME", "-u", "XDG_DATA_HOME", "-u", "XDG_CONFIG_HOME"};
    Document("root.cer", platform::AsText(pki_.root.Der()));
    EXPECT_EQ(RunBelow(homeless, {"settings", "get", "Verification", "HashAlg"}).output, "SHA256\n");
    for (const auto& arguments : {std::vector<std::string>{"settings", "set", "Verification", "HashAlg", "SHA1"},
                                  std::vector<std::string>{"store", "import", "root.cer", "--store", "ROOT"}}) {
        const auto result = RunBelow(homeless, arguments);
        EXPECT_EQ(result.status, 1) << result.Summary();
        EXPECT_THAT(result.errors, HasSubstr("Няма такава папка."));
    }
    EXPECT_THAT(RunBelow(homeless, {"sign", "a.txt"}).errors, HasSubstr("Няма валиден сертификат"));
}

TEST_F(BadInputTest, ATempFolderThatOthersCanWriteIsNotUsed) {
    const auto shared = profile_.Folder() / "shared";
    fs::create_directory(shared);
    ASSERT_EQ(chmod(shared.c_str(), 0777), 0);
    if (geteuid() == 0) {
        ASSERT_EQ(chown(shared.c_str(), 65534, 65534), 0);
    }
    profile_.Set("TMPDIR", shared);
    EXPECT_EQ(Run({"sign", "a.txt"}).status, 0);
    EXPECT_EQ(AcceptedContent("a.txt.p7m"), "words");
    EXPECT_THAT(FilesIn(shared), IsEmpty());
    EXPECT_THAT(Run({"verify", "a.txt"}).output, HasSubstr("Причината не е записана"));
    EXPECT_THAT(FilesIn(Documents()), ElementsAre("a.txt", "a.txt.p7m"));
}

// Bytes that are no text must not get another file signed: the one that it becomes when its bad byte is replaced.
TEST_F(BadInputTest, ANameThatIsNoTextNeverGetsAnotherFileSigned) {
    const std::string wanted = "act\xFF.txt", other = "act\uFFFD.txt";
    for (const auto& name : {wanted, other, std::string("act\n.txt")})
        Document(name);
    const auto both = Run({"sign", wanted, "act\n.txt"});
    EXPECT_EQ(both.status, 1);
    EXPECT_THAT(both.errors, HasSubstr(wanted + ": името на файла не е в UTF-8"));
    EXPECT_EQ(Run({"sign", "--output-folder", "out\xFF", other}).status, 2);
    EXPECT_THAT(FilesIn(Documents()), ElementsAre("a.txt", "act\n.txt", "act\n.txt.p7m", other, wanted));
}

}  // namespace

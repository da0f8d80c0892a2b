#include <sys/stat.h>

#include <csignal>

#include "tests/callers/SigningWindows.h"

// Signing in a process of its own: a launcher stands beside the library, shows the window and goes.
namespace {

namespace fs = std::filesystem;
using testing::AllOf;
using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;

constexpr char kTitle[] = "ТЕСАЛИ Norvik - подписване на файл";

class Relay : public tests::SigningWindows {
  protected:
    Relay() {
        const auto folder = profile_.Folder() / "installed";
        fs::create_directory(folder);
        for (const auto* const name : {"libNorvik.so", "libNorvikCore.so", "NorvikDialogs.so"})
            fs::copy_file(library_.parent_path() / name, folder / name);
        fs::copy_file(NORVIK_BINARY_DIR "/launcher/NorvikRun.exe", folder / "NorvikRun.exe");
        library_ = folder / "libNorvik.so";
    }
    [[nodiscard]] std::future<tests::ProcessResult> StartScript() const {
        return screen_.Start(Script({"NorvikSignFileJson", Request(0)}));
    }
    // The files through which requests go at this moment.
    [[nodiscard]] std::vector<fs::path> RelayFiles() const {
        std::vector<fs::path> found;
        for (const auto& session : fs::directory_iterator(profile_.Folder() / "tmp/Norvik"))
            if (fs::exists(session.path() / "out.txt")) found.push_back(session.path() / "out.txt");
        return found;
    }
};

TEST_F(Relay, AnApplicationOfAnotherToolkitSignsThroughTheLauncher) {
    auto running = screen_.Start(
        WithoutTokens({NORVIK_BINARY_DIR "/tests/callers/gtk_caller", library_, "NorvikSignFileJson", Request(0)}));
    const auto window = screen_.WaitForWindow(kTitle);
    ASSERT_NE(window, "");
    EXPECT_EQ(ProgramOf(window), "NorvikRun.exe");
    const auto files = RelayFiles();
    ASSERT_EQ(files.size(), 1U);
    EXPECT_EQ(tests::ReadFile(files[0]), Request(0));
    struct stat status {};
    ASSERT_EQ(stat(files[0].c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777U, 0600U) << "the request may hold a password";
    EXPECT_TRUE(screen_.Photograph("callers-relay"));
    screen_.Press("Return");
    const auto result = running.get();
    EXPECT_EQ(result.status, 3) << result.Summary();
    EXPECT_THAT(result.output, HasSubstr("\"ResultFile\": \"" + document_.string() + ".p7s\""));
    EXPECT_THAT(result.output, AllOf(Not(HasSubstr("Error")), EndsWith("done 0\nlabel after\n")));
    EXPECT_EQ(Signed(".p7s"), "words");
    EXPECT_TRUE(fs::is_empty(profile_.Folder() / "tmp/Norvik") || RelayFiles().empty());
}

TEST_F(Relay, WhoCancelsLeavesAnEmptyFileAndTheCallerGetsAnError) {
    auto running = StartScript();
    ASSERT_NE(screen_.WaitForWindow(kTitle), "");
    screen_.Press("Escape");
    const auto result = running.get();
    EXPECT_EQ(result.status, 3) << result.Summary();
    EXPECT_THAT(result.output, HasSubstr("answer {\"Error\": true, \"ErrorString\": \""));
    EXPECT_THAT(result.output, EndsWith("done False\nrelay 600 \"\"\n"));
    EXPECT_FALSE(fs::exists(document_.string() + ".p7s"));
}

// Nobody has touched the file then, and the caller gets back what it asked.
TEST_F(Relay, ALauncherThatDiesLeavesTheRequestAsItsAnswer) {
    auto running = StartScript();
    const auto window = screen_.WaitForWindow(kTitle);
    ASSERT_EQ(ProgramOf(window), "NorvikRun.exe");
    ASSERT_EQ(kill(screen_.ProcessOf(window), SIGKILL), 0);
    const auto result = running.get();
    EXPECT_EQ(result.status, 3) << result.Summary();
    EXPECT_THAT(result.output, HasSubstr("answer {\"SignFile\": \"" + document_.string() +
                                         "\", \"SignMode\": 0}\ndone False\nrelay 600"));
    EXPECT_FALSE(fs::exists(document_.string() + ".p7s"));
}

TEST_F(Relay, ALauncherThatCannotStartIsToldToThePersonAndToTheCaller) {
    fs::permissions(library_.parent_path() / "NorvikRun.exe", fs::perms::owner_read);
    auto running = StartScript();
    const auto window = screen_.WaitForWindow("Norvik грешка!");
    EXPECT_THAT(ProgramOf(window), HasSubstr("python"));
    EXPECT_TRUE(screen_.Photograph("callers-relay-no-start"));
    screen_.Press("Return");
    const auto result = running.get();
    EXPECT_EQ(result.status, 3) << result.Summary();
    EXPECT_THAT(result.output, HasSubstr("answer {\"Error\": true, \"ErrorString\": \"Msg: "));
    EXPECT_THAT(result.output, HasSubstr("done False\n"));
}

}  // namespace

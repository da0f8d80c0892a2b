#include <csignal>

#include "tests/callers/SigningWindows.h"

// Signing in a process of its own: a launcher stands beside the library, shows the window and goes.
namespace {

using namespace tests;

constexpr char kTitle[] = "ТЕСАЛИ Norvik - подписване на файл";

class Relay : public SigningWindows {
  protected:
    Relay() {
        const auto folder = profile_.Folder() / "installed";
        fs::create_directory(folder);
        for (const auto* const name : {"libNorvik.so", "libNorvikCore.so", "NorvikDialogs.so"})
            fs::copy_file(library_.parent_path() / name, folder / name);
        fs::copy_file(NORVIK_BINARY_DIR "/launcher/NorvikRun.exe", folder / "NorvikRun.exe");
        library_ = folder / "libNorvik.so";
    }
    void StartScript() { Start(Script({"call", "NorvikSignFileJson", Request(0)})); }
    // The files through which requests go at this moment.
    [[nodiscard]] std::vector<fs::path> RelayFiles() const {
        std::vector<fs::path> found;
        for (const auto& session : fs::directory_iterator(profile_.Folder() / "tmp/Norvik"))
            if (fs::exists(session.path() / "out.txt")) found.push_back(session.path() / "out.txt");
        return found;
    }
};

TEST_F(Relay, AnApplicationOfAnotherToolkitSignsThroughTheLauncher) {
    StartCaller("gtk_caller", {"NorvikSignFileJson", Request(0)});
    EXPECT_EQ(ProgramOf(Window(kTitle, "callers-relay")), "NorvikRun.exe");
    const auto files = RelayFiles();
    ASSERT_EQ(files.size(), 1U);
    EXPECT_EQ(ReadFile(files[0]), Request(0));
    EXPECT_EQ(fs::status(files[0]).permissions(), fs::perms(0600)) << "the request may hold a password";
    screen_.Press("Return");
    const auto output = Ended().output;
    EXPECT_THAT(output, HasSubstr("\"ResultFile\": \"" + document_.string() + ".p7s\""));
    EXPECT_THAT(output, AllOf(Not(HasSubstr("Error")), EndsWith("done 0\nlabel after\n")));
    EXPECT_EQ(Signed(".p7s"), "words");
    EXPECT_TRUE(RelayFiles().empty());
}

TEST_F(Relay, WhoCancelsLeavesAnEmptyFileAndTheCallerGetsAnError) {
    StartScript();
    Window(kTitle);
    screen_.Press("Escape");
    EXPECT_THAT(Ended().output, AllOf(HasSubstr("  True {\"Error\": true, \"ErrorString\": \""),
                                      EndsWith("\n  False\nrelay 600 \"\"\n")));
    EXPECT_FALSE(fs::exists(document_.string() + ".p7s"));
}

// Nobody has touched the file then, and the caller gets back what it asked.
TEST_F(Relay, ALauncherThatDiesLeavesTheRequestAsItsAnswer) {
    StartScript();
    const auto window = Window(kTitle);
    ASSERT_EQ(ProgramOf(window), "NorvikRun.exe");
    ASSERT_EQ(kill(screen_.ProcessOf(window), SIGKILL), 0);
    EXPECT_THAT(Ended().output, HasSubstr("  True {\"SignFile\": \"" + document_.string() +
                                          "\", \"SignMode\": 0}\n  False\nrelay 600"));
    EXPECT_FALSE(fs::exists(document_.string() + ".p7s"));
}

TEST_F(Relay, ALauncherThatCannotStartIsToldToThePersonAndToTheCaller) {
    fs::permissions(library_.parent_path() / "NorvikRun.exe", fs::perms::owner_read);
    StartScript();
    EXPECT_THAT(ProgramOf(Window("Norvik грешка!", "callers-relay-no-start")), HasSubstr("python"));
    screen_.Press("Return");
    EXPECT_THAT(Ended().output,
                AllOf(HasSubstr("  True {\"Error\": true, \"ErrorString\": \"Msg: "), HasSubstr("\n  False\n")));
}

}  // namespace

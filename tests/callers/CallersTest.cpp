#include "tests/callers/SigningWindows.h"

// Programs that know nothing of the windows call the library, and a window comes up: here, the question for the
// password of a PFX file.
namespace {

using namespace tests;
using testing::ContainsRegex;

constexpr char kTitle[] = "Отваряне на key.pfx ...";
constexpr char kPassword[] = "secret";

class Callers : public SigningWindows {
  protected:
    void StartGtk(std::vector<std::string> owner = {}) {
        owner.insert(owner.begin(), {"NorvikCertInfoJson", "{\"Filename\":\"" + pfx_ + "\"}"});
        StartCaller("gtk_caller", owner);
    }
    // Answers the question that comes up.
    void EnterPassword() const {
        Window(kTitle);
        screen_.Type(kPassword);
        screen_.Press("Return");
    }
    [[nodiscard]] std::string Log() const { return ReadFile(profile_.Folder() / "tmp/Norvik/Norvik.log"); }

    const std::string pfx_ = profile_.Write(
        "key.pfx",
        platform::AsText(MakePfx({.certificates = {Issue({.key = TestKey(KeyType::p256)})}, .password = kPassword})));
};

TEST_F(Callers, APlainProgramGetsItsWindowsAndKeepsItsLocaleItsSignalsAndItsExitStatus) {
    constexpr auto kept = "locale C\nwindows 1\nhandlers default\n";
    const struct {
        const char* mode;
        int windows;
        std::string told;
    } cases[] = {{"once", 1, "done 1\n"},
                 {"unload", 1, "done 1\n"},
                 {"thread", 1, "done 1\nanswer [^\n]*\"Error\"[^\n]*\ndone 0\n"},  // only the first can show windows
                 {"fork", 2, "done 1\nanswer [^\n]*\ndone 1\n"}};  // a child that ends takes no window from its parent
    for (const auto& [mode, windows, told] : cases) {
        SCOPED_TRACE(mode);
        StartCaller("caller", {pfx_, mode});
        for (int i = 0; i < windows; ++i)
            EnterPassword();
        const auto result = Ended();
        EXPECT_THAT(result.output, ContainsRegex("^answer [^\n]*\"Thumbprint\"[^\n]*\n" + told + kept));
        EXPECT_EQ(result.errors, "");
    }
}

TEST_F(Callers, CallsWithoutAWindowDoNotLoadWhatDrawsOne) {
    StartCaller("caller", {pfx_, "once", kPassword});
    EXPECT_THAT(Ended().output, HasSubstr("done 1\nlocale C\nwindows 0\n"));
}

TEST_F(Callers, TwoHundredCallsShowTheirWindows) {
    StartCaller("caller", {pfx_, "often"});
    // Whoever gets a key that no window waits for loses it; so there are as many as it takes.
    while (running_.wait_for(std::chrono::seconds(0)) != std::future_status::ready)
        screen_.Press("Escape", 50);
    const auto output = Ended().output;
    // What follows on a cancelled question; without a window there would be another answer.
    constexpr std::string_view cancelled = "Cannot open file.";
    std::size_t calls = 0;
    for (auto at = output.find(cancelled); at != std::string::npos; at = output.find(cancelled, at + 1))
        ++calls;
    EXPECT_EQ(calls, 200U);
}

TEST_F(Callers, WithoutADisplayTheCallFailsAndTheProgramLivesOn) {
    for (const std::string given :
         {"", "DISPLAY=:4711", "DISPLAY='no display'", "QT_QPA_PLATFORM=abacus", "WAYLAND_DISPLAY=wayland-dead"}) {
        const auto line = "env -u DISPLAY -u WAYLAND_DISPLAY -u QT_QPA_PLATFORM " + given +
                          " " NORVIK_BINARY_DIR "/tests/callers/caller \"$1\" \"$2\" once";
        const auto result = RunProgram({"sh", "-c", line, "sh", library_, pfx_});
        EXPECT_EQ(result.status, 3) << given << result.Summary();
        EXPECT_THAT(result.output, AllOf(HasSubstr("\"Error\""), HasSubstr("done 0\nlocale C\n"))) << given;
    }
    EXPECT_THAT(Log(), HasSubstr("Няма достъпен екран"));
}

TEST_F(Callers, AWindowOfAnotherToolkitOwnsTheDialogAndItsProgramGoesOnAfterwards) {
    StartGtk();
    const auto window = Window(kTitle), owner = screen_.Property(window, "WM_TRANSIENT_FOR");
    EXPECT_THAT(screen_.Property(window, "_NET_WM_STATE"), HasSubstr("_NET_WM_STATE_MODAL"));
    EnterPassword();
    const auto result = Ended();
    ExpectOwner(owner, result);
    EXPECT_THAT(result.output, AllOf(HasSubstr("\"Thumbprint\""), EndsWith("done 1\nlabel after\n")));
}

TEST_F(Callers, AnOwnerThatDoesNotExistIsLeftOutAndLogged) {
    StartGtk({"0x7654321"});
    EXPECT_THAT(screen_.Property(Window(kTitle), "WM_TRANSIENT_FOR"), Not(HasSubstr("0x7654321")));
    EnterPassword();
    EXPECT_THAT(Ended().output, HasSubstr("\"Thumbprint\""));
    EXPECT_THAT(Log(), HasSubstr("owner window does not exist"));
}

TEST_F(Callers, TheApplicationObjectOfTheCallerIsUsedIfItCanShowWindows) {
    StartCaller("qt_caller", {pfx_, "widgets"});
    EXPECT_THAT(screen_.Property(Window(kTitle), "WM_TRANSIENT_FOR"), HasSubstr("window id # 0x"));
    EnterPassword();
    EXPECT_THAT(Ended().output, HasSubstr("done 1\nsame 1\n"));

    StartCaller("qt_caller", {pfx_, "core"});
    EXPECT_THAT(Ended().output, AllOf(HasSubstr("QApplication"), HasSubstr("done 0\n")));
}

}  // namespace

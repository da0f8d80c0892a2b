#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/callers/Screen.h"
#include "tests/support/Pki.h"
#include "tests/support/Profile.h"

// Programs that know nothing of the windows call the library, and a window comes up: here, the question for the
// password of a PFX file.
namespace {

using testing::AllOf;
using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;

constexpr char kLibrary[] = NORVIK_BINARY_DIR "/lib/libNorvik.so";
constexpr char kPrograms[] = NORVIK_BINARY_DIR "/tests/callers/";
constexpr char kTitle[] = "Отваряне на key.pfx ...";
constexpr char kPassword[] = "secret";
constexpr char kFunction[] = "NorvikCertInfoJson";

class Callers : public testing::Test {
  protected:
    Callers() {
        const auto pfx = tests::MakePfx(
            {.certificates = {tests::Issue({.key = tests::TestKey(tests::KeyType::p256)})}, .password = kPassword});
        pfx_ = profile_.Write("key.pfx", std::string(pfx.begin(), pfx.end())).string();
    }

    [[nodiscard]] std::vector<std::string> Command(const std::string& program,
                                                   const std::vector<std::string>& rest = {}) const {
        std::vector<std::string> command{kPrograms + program, kLibrary, pfx_};
        command.insert(command.end(), rest.begin(), rest.end());
        return command;
    }
    [[nodiscard]] std::string Request() const { return "{\"Filename\":\"" + pfx_ + "\"}"; }
    [[nodiscard]] std::vector<std::string> GtkCommand(const std::vector<std::string>& rest = {}) const {
        std::vector<std::string> command{kPrograms + std::string("gtk_caller"), kLibrary, kFunction, Request()};
        command.insert(command.end(), rest.begin(), rest.end());
        return command;
    }
    // Answers the question that comes up. The number of its window.
    std::string EnterPassword() const {
        auto window = screen_.WaitForWindow(kTitle);
        EXPECT_NE(window, "");
        screen_.Type(kPassword);
        screen_.Press("Return");
        return window;
    }
    [[nodiscard]] std::string Log() const { return tests::ReadFile(profile_.Folder() / "tmp/Norvik/Norvik.log"); }

    tests::Profile profile_;
    std::string pfx_;
    const tests::Screen screen_;
};

TEST_F(Callers, APlainProgramGetsAWindowAndKeepsItsLocaleItsSignalsAndItsExitStatus) {
    for (const std::string mode : {"once", "unload"}) {
        auto running = screen_.Start(Command("caller", {mode}));
        EnterPassword();
        const auto result = running.get();
        EXPECT_EQ(result.status, 3) << mode << result.Summary();
        EXPECT_THAT(result.output, HasSubstr("done 1\nlocale C\nwindows 1\nhandlers default\n")) << mode;
        EXPECT_THAT(result.output, Not(HasSubstr("Error")));
        EXPECT_EQ(result.errors, "") << mode;
    }
}

TEST_F(Callers, CallsWithoutAWindowDoNotLoadWhatDrawsOne) {
    const auto result = screen_.Start(Command("caller", {"once", kPassword})).get();
    EXPECT_THAT(result.output, HasSubstr("done 1\nlocale C\nwindows 0\n")) << result.Summary();
}

TEST_F(Callers, ASecondThreadIsToldThatItCannotShowWindows) {
    auto running = screen_.Start(Command("caller", {"thread"}));
    EnterPassword();
    const auto result = running.get();
    EXPECT_EQ(result.status, 3) << result.Summary();
    const auto second = result.output.substr(result.output.find("done 1"));
    EXPECT_THAT(second, HasSubstr("\"Error\"")) << result.output;
    EXPECT_THAT(second, HasSubstr("done 0"));
}

TEST_F(Callers, AChildThatEndsTakesNoWindowFromItsParent) {
    auto running = screen_.Start(Command("caller", {"fork"}));
    EnterPassword();
    EnterPassword();
    const auto result = running.get();
    EXPECT_EQ(result.status, 3) << result.Summary();
    EXPECT_THAT(result.output, Not(HasSubstr("Error")));
}

TEST_F(Callers, TwoHundredCallsShowTheirWindows) {
    auto running = screen_.Start(Command("caller", {"often"}));
    // Whoever gets a key that no window waits for loses it; so there are as many as it takes.
    while (running.wait_for(std::chrono::seconds(0)) != std::future_status::ready)
        screen_.Press("Escape", 50);
    const auto result = running.get();
    EXPECT_EQ(result.status, 3) << result.Summary();
    // What follows on a cancelled question; without a window there would be another answer.
    constexpr std::string_view cancelled = "Cannot open file.";
    std::size_t calls = 0;
    for (auto at = result.output.find(cancelled); at != std::string::npos; at = result.output.find(cancelled, at + 1))
        ++calls;
    EXPECT_EQ(calls, 200U);
}

TEST_F(Callers, WithoutADisplayTheCallFailsAndTheProgramLivesOn) {
    using Variables = std::map<std::string, std::optional<std::string>>;
    const Variables none{
        {"DISPLAY", std::nullopt}, {"WAYLAND_DISPLAY", std::nullopt}, {"QT_QPA_PLATFORM", std::nullopt}};
    auto dead = none, stuck = none, unknown = none, wayland = none;
    dead["DISPLAY"] = ":4711";
    stuck["DISPLAY"] = "no display";
    unknown["QT_QPA_PLATFORM"] = "abacus";
    wayland["WAYLAND_DISPLAY"] = "wayland-dead";
    for (const auto& environment : {none, dead, stuck, unknown, wayland}) {
        const auto result = tests::RunProgram(Command("caller", {"once"}), {.environment = environment});
        EXPECT_EQ(result.status, 3) << result.Summary();
        EXPECT_THAT(result.output, HasSubstr("\"Error\""));
        EXPECT_THAT(result.output, HasSubstr("done 0\nlocale C\n"));
    }
    EXPECT_THAT(Log(), HasSubstr("Няма достъпен екран"));
}

TEST_F(Callers, AWindowOfAnotherToolkitOwnsTheDialogAndItsProgramGoesOnAfterwards) {
    auto running = screen_.Start(GtkCommand());
    const auto window = screen_.WaitForWindow(kTitle);
    ASSERT_NE(window, "");
    const auto owner = screen_.Property(window, "WM_TRANSIENT_FOR");
    EXPECT_THAT(screen_.Property(window, "_NET_WM_STATE"), HasSubstr("_NET_WM_STATE_MODAL"));
    EnterPassword();
    const auto result = running.get();
    EXPECT_EQ(result.status, 3) << result.Summary();
    const auto number = result.output.substr(6, result.output.find('\n') - 6);
    EXPECT_THAT(owner, HasSubstr("window id # " + number + "\n"));
    EXPECT_THAT(result.output, AllOf(HasSubstr("\"Thumbprint\""), EndsWith("done 1\nlabel after\n")));
}

TEST_F(Callers, AnOwnerThatDoesNotExistIsLeftOutAndLogged) {
    auto running = screen_.Start(GtkCommand({"0x7654321"}));
    const auto window = screen_.WaitForWindow(kTitle);
    EXPECT_THAT(screen_.Property(window, "WM_TRANSIENT_FOR"), Not(HasSubstr("0x7654321")));
    EnterPassword();
    const auto result = running.get();
    EXPECT_EQ(result.status, 3) << result.Summary();
    EXPECT_THAT(result.output, HasSubstr("\"Thumbprint\""));
    EXPECT_THAT(Log(), HasSubstr("owner window does not exist"));
}

TEST_F(Callers, TheApplicationObjectOfTheCallerIsUsedIfItCanShowWindows) {
    auto running = screen_.Start(Command("qt_caller", {"widgets"}));
    const auto window = screen_.WaitForWindow(kTitle);
    EXPECT_THAT(screen_.Property(window, "WM_TRANSIENT_FOR"), HasSubstr("window id # 0x"));
    EnterPassword();
    const auto result = running.get();
    EXPECT_EQ(result.status, 3) << result.Summary();
    EXPECT_THAT(result.output, HasSubstr("done 1\nsame 1\n"));

    const auto core = screen_.Start(Command("qt_caller", {"core"})).get();
    EXPECT_EQ(core.status, 3) << core.Summary();
    EXPECT_THAT(core.output, HasSubstr("QApplication"));
    EXPECT_THAT(core.output, HasSubstr("done 0\n"));
}

}  // namespace

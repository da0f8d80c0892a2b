#include "tests/callers/SigningWindows.h"

// The windows of verification as people meet them: from the command, and owned by a program of another toolkit.
namespace {

using testing::EndsWith;
using testing::HasSubstr;

constexpr char kResults[] = "ТЕСАЛИ Norvik - резултати от декриптиране/проверка";

class VerifyWindows : public tests::SigningWindows {
  protected:
    VerifyWindows() {
        pki_.InstallCrls(profile_);
        SignByPeer(attached_, {"-nodetach"});
        SignByPeer(detached_);
    }
    const std::string attached_ = document_.string() + ".p7m", detached_ = document_.string() + ".p7s";
};

TEST_F(VerifyWindows, TheCommandShowsTheResultsOfWhichEachPartIsReachedAndSavesTheContent) {
    const auto saved = profile_.Folder() / "saved.txt";
    auto running =
        screen_.Start(WithoutTokens({NORVIK_BINARY_DIR "/bin/norvik", "verify", "--dialog", "--offline", attached_}));
    const auto window = screen_.WaitForWindow(kResults);
    ASSERT_NE(window, "");
    EXPECT_TRUE(screen_.Photograph("callers-verify"));
    screen_.Click(window, 0.2, 0.19, 2);
    EXPECT_NE(screen_.WaitForWindow("ТЕСАЛИ Norvik - детайли"), "") << "of the signature that was clicked";
    EXPECT_TRUE(screen_.Photograph("callers-verify-details"));
    screen_.Press("Return");
    // With the keyboard alone: how often Tab goes on to the button, and the window that it opens.
    for (const auto& [tabs, title] :
         {std::pair{1, "Сертификат"}, {2, "ТЕСАЛИ Norvik - отпечатване на справка"}, {4, "Save as"}}) {
        ASSERT_EQ(screen_.WaitForWindow(kResults), window);
        screen_.Press("Tab", tabs);
        screen_.Press("space");
        EXPECT_NE(screen_.WaitForWindow(title), "") << title;
        screen_.Press("Escape");
    }
    ASSERT_EQ(screen_.WaitForWindow(kResults), window);
    screen_.Press("space");
    EXPECT_NE(screen_.WaitForWindow("Save as"), "");
    screen_.Type(saved.string());
    screen_.Press("Return");
    ASSERT_EQ(screen_.WaitForWindow(kResults), window);
    screen_.Press("Return");
    const auto result = running.get();
    EXPECT_EQ(result.status, 0) << result.Summary();
    EXPECT_EQ(tests::ReadFile(saved), "words");
}

TEST_F(VerifyWindows, AnApplicationOfAnotherToolkitOwnsTheWindowAndHearsThatItWasShown) {
    profile_.Write(document_, "other words");
    auto running = screen_.Start(
        WithoutTokens({NORVIK_BINARY_DIR "/tests/callers/gtk_caller", library_, "NorvikDecryptVerifyFile", detached_}));
    const auto window = screen_.WaitForWindow(kResults);
    ASSERT_NE(window, "");
    const auto owner = screen_.Property(window, "WM_TRANSIENT_FOR");
    EXPECT_TRUE(screen_.Photograph("callers-verify-owned"));
    screen_.Press("Escape");
    const auto result = running.get();
    EXPECT_EQ(result.status, 3) << result.Summary();
    EXPECT_THAT(owner, HasSubstr("window id # " + result.output.substr(6, result.output.find('\n') - 6) + "\n"));
    EXPECT_THAT(result.output, EndsWith("done 1\nlabel after\n"));
}

}  // namespace

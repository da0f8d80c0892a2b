#include "tests/callers/SigningWindows.h"

// The windows of signing as a person meets them: found on the screen, driven by keyboard and mouse, and photographed.
namespace {

namespace fs = std::filesystem;
using testing::EndsWith;
using testing::HasSubstr;
using tests::SigningWindows;

constexpr char kCommand[] = NORVIK_BINARY_DIR "/bin/norvik";
constexpr char kSignTitle[] = "ТЕСАЛИ Norvik - подписване на файл";
constexpr char kSelectTitle[] = "Избиране на сертификат ...";

TEST_F(SigningWindows, ThePersonDecidesAboutTheFormAndLooksAtTheCertificateBefore) {
    auto running = screen_.Start(Script({"NorvikSignFileJson", Request(2)}));
    ASSERT_NE(screen_.WaitForWindow(kSignTitle), "");
    EXPECT_TRUE(screen_.Photograph("callers-sign"));
    screen_.Press("alt+Return");
    EXPECT_NE(screen_.WaitForWindow("Сертификат"), "");
    EXPECT_TRUE(screen_.Photograph("callers-sign-certificate"));
    screen_.Press("Escape");
    ASSERT_NE(screen_.WaitForWindow(kSignTitle), "");
    screen_.Press("Tab", 2);
    screen_.Press("space");
    screen_.Press("Return");
    const auto result = running.get();
    EXPECT_EQ(result.status, 3) << result.Summary();
    EXPECT_THAT(result.output, HasSubstr("\"ResultFile\": \"" + document_.string() + ".p7s\", \"SignMode\": 2}"));
    EXPECT_THAT(result.output, EndsWith("done True\n"));
    EXPECT_EQ(Signed(".p7s"), "words");
}

TEST_F(SigningWindows, TheAboutBoxShowsAndGoesWithAKey) {
    auto running = screen_.Start(Script({"NorvikShowAboutBox"}));
    ASSERT_NE(screen_.WaitForWindow("Относно Norvik"), "");
    EXPECT_TRUE(screen_.Photograph("callers-about"));
    screen_.Press("Return");
    const auto result = running.get();
    EXPECT_EQ(result.status, 3) << result.Summary();
    EXPECT_EQ(result.output, "done\n");
}

TEST_F(SigningWindows, TheCommandSignsAllItsFilesByOneDecision) {
    const auto second = profile_.Write("documents/b.txt", "more").string();
    auto running = screen_.Start(WithoutTokens({kCommand, "sign", "--dialog", "--detached", document_, second}));
    ASSERT_NE(screen_.WaitForWindow(kSignTitle), "");
    EXPECT_TRUE(screen_.Photograph("callers-command-sign"));
    screen_.Press("Return");
    const auto result = running.get();
    EXPECT_EQ(result.status, 0) << result.Summary();
    EXPECT_EQ(result.output, document_.string() + ".p7s\n" + second + ".p7s\n");
    EXPECT_EQ(Signed(".p7s"), "words");

    running = screen_.Start(WithoutTokens({kCommand, "sign", "--dialog", document_}));
    ASSERT_NE(screen_.WaitForWindow(kSignTitle), "");
    screen_.Press("Escape");
    EXPECT_EQ(running.get().status, 1);
    EXPECT_FALSE(fs::exists(document_.string() + ".p7m"));
}

TEST_F(SigningWindows, TheCommandOpensTheListOfCertificatesAndPrintsTheOneThatIsClicked) {
    auto running = screen_.Start(WithoutTokens({kCommand, "select", "--dialog"}));
    const auto window = screen_.WaitForWindow(kSelectTitle);
    ASSERT_NE(window, "");
    screen_.Click(window, 0.2, 0.13);
    EXPECT_TRUE(screen_.Photograph("callers-command-select"));
    screen_.Press("Return");
    const auto result = running.get();
    EXPECT_EQ(result.status, 0) << result.Summary();
    EXPECT_THAT(result.output, HasSubstr(pki_.signer.Thumbprint()));

    running = screen_.Start(WithoutTokens({kCommand, "select", "--dialog"}));
    ASSERT_NE(screen_.WaitForWindow(kSelectTitle), "");
    screen_.Press("Escape");
    EXPECT_EQ(running.get().status, 1);
}

}  // namespace

#include "tests/callers/SigningWindows.h"

// The windows of signing and verification as a person meets them: found on the screen, driven by keyboard and mouse,
// and photographed.
namespace {

using namespace tests;

constexpr char kCommand[] = NORVIK_BINARY_DIR "/bin/norvik";
constexpr char kSignTitle[] = "ТЕСАЛИ Norvik - подписване на файл";
constexpr char kSelectTitle[] = "Избиране на сертификат ...";
constexpr char kResults[] = "ТЕСАЛИ Norvik - резултати от декриптиране/проверка";

TEST_F(SigningWindows, ThePersonDecidesAboutTheFormAndLooksAtTheCertificateBefore) {
    Start(Script({"call", "NorvikSignFileJson", Request(2)}));
    Window(kSignTitle, "callers-sign");
    screen_.Press("alt+Return");
    Window("Сертификат", "callers-sign-certificate");
    screen_.Press("Escape");
    Window(kSignTitle);
    screen_.Press("Tab", 2);
    screen_.Press("space");
    screen_.Press("Return");
    const auto output = Ended().output;
    EXPECT_THAT(output, HasSubstr("\"ResultFile\": \"" + document_.string() + ".p7s\", \"SignMode\": 2}"));
    EXPECT_THAT(output, EndsWith("  True\n"));
    EXPECT_EQ(Signed(".p7s"), "words");
}

TEST_F(SigningWindows, TheAboutBoxShowsAndGoesWithAKey) {
    Start(Script({"call", "NorvikShowAboutBox"}));
    Window("Относно Norvik", "callers-about");
    screen_.Press("Return");
    EXPECT_EQ(Ended().output, "NorvikShowAboutBox\n  None\n");
}

TEST_F(SigningWindows, TheCommandSignsAllItsFilesByOneDecision) {
    const auto second = profile_.Write("documents/b.txt", "more").string();
    Start({kCommand, "sign", "--dialog", "--detached", document_, second});
    Window(kSignTitle, "callers-command-sign");
    screen_.Press("Return");
    EXPECT_EQ(Ended(0).output, document_.string() + ".p7s\n" + second + ".p7s\n");
    EXPECT_EQ(Signed(".p7s"), "words");

    Start({kCommand, "sign", "--dialog", document_});
    Window(kSignTitle);
    screen_.Press("Escape");
    Ended(1);
    EXPECT_FALSE(fs::exists(document_.string() + ".p7m"));
}

TEST_F(SigningWindows, TheCommandOpensTheListOfCertificatesAndPrintsTheOneThatIsClicked) {
    Start({kCommand, "select", "--dialog"});
    screen_.Click(Window(kSelectTitle), 0.2, 0.13);
    EXPECT_TRUE(screen_.Photograph("callers-command-select"));
    screen_.Press("Return");
    EXPECT_THAT(Ended(0).output, HasSubstr(pki_.signer.Thumbprint()));

    Start({kCommand, "select", "--dialog"});
    Window(kSelectTitle);
    screen_.Press("Escape");
    Ended(1);
}

TEST_F(SigningWindows, TheCommandShowsTheResultsTheirDetailsAndSavesTheContent) {
    const auto saved = profile_.Folder() / "saved.txt", attached = fs::path(document_.string() + ".p7m");
    pki_.InstallCrls(profile_);
    SignByPeer(attached, "-nodetach");
    Start({kCommand, "verify", "--dialog", "--offline", attached});
    const auto window = Window(kResults, "callers-verify");
    screen_.Click(window, 0.2, 0.19, 2);
    Window("ТЕСАЛИ Norvik - детайли", "callers-verify-details");  // of the signature that was clicked
    screen_.Press("Return");
    EXPECT_EQ(Window(kResults), window);
    screen_.Press("Tab", 6);  // with the keyboard alone from here
    screen_.Press("space");
    Window("Save as");
    screen_.Type(saved.string());
    screen_.Press("Return");
    EXPECT_EQ(Window(kResults), window);
    screen_.Press("Return");
    Ended(0);
    EXPECT_EQ(ReadFile(saved), "words");
}

TEST_F(SigningWindows, AnApplicationOfAnotherToolkitOwnsTheResultsAndHearsThatTheyWereShown) {
    const auto detached = document_.string() + ".p7s";
    pki_.InstallCrls(profile_);
    SignByPeer(detached);
    profile_.Write(document_, "other words");
    StartCaller("gtk_caller", {"NorvikDecryptVerifyFile", detached});
    const auto owner = screen_.Property(Window(kResults, "callers-verify-owned"), "WM_TRANSIENT_FOR");
    screen_.Press("Escape");
    const auto result = Ended();
    ExpectOwner(owner, result);
    EXPECT_THAT(result.output, EndsWith("done 1\nlabel after\n"));
}

}  // namespace

// Signing with keys on cards, as far as the command decides: which PIN goes where and how often.

#include <csignal>

#include "tests/support/SoftToken.h"
#include "tests/tools/CommandTest.h"

namespace {

namespace fs = std::filesystem;
using namespace tests;
using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;

class TokenCommandTest : public CommandTest {
  protected:
    TokenCommandTest() {
        InstallCertificate(profile_, "ROOT", pki_.root);
        InstallCertificate(profile_, "CA", pki_.ca);
        Document("a.txt", "first");
        Document("b.txt", "second");
    }
    // The card of tests::FakeToken in the command's process; its PIN is 1234.
    void InsertFakeCard(int tries) {
        UsePkcs11Module(profile_, "fake", fs::path(NORVIK_BINARY_DIR) / "lib/norvik-fake-token.so");
        profile_.Set("NORVIK_FAKE_TOKEN", profile_.Write("card.pem", pki_.signer.Pem() + pki_.signer.KeyPem()));
        profile_.Set("NORVIK_FAKE_TOKEN_TRIES", std::to_string(tries));
    }
    void ExpectNothingSigned() const { EXPECT_THAT(FilesIn(Documents()), ElementsAre("a.txt", "b.txt")); }
};

TEST_F(TokenCommandTest, SignsOnTheCardWithThePinFromStandardInput) {
    if (!SoftToken::Available()) GTEST_SKIP() << "SoftHSM2 or pkcs11-tool is not installed";
    SoftToken token(profile_);
    token.Put(pki_.signer, "01");
    const auto maria = Issue({.subject = {{"CN", "Мария"}}, .key = TestKey(KeyType::p256)}, pki_.ca);
    token.Put(maria, "02");
    for (const auto& certificate : {pki_.signer, maria}) {
        const auto result = Run({"sign", "a.txt", "b.txt", "--pin-stdin", "--certificate", certificate.Thumbprint()},
                                token.Pin() + "\n");
        EXPECT_EQ(result.status, 0) << result.Summary();
        EXPECT_EQ(AcceptedContent("a.txt.p7m"), "first");
        EXPECT_EQ(AcceptedContent("b.txt.p7m"), "second");
        EXPECT_THAT(Run({"verify", "b.txt.p7m"}).output,
                    HasSubstr(certificate.Der() == maria.Der() ? "Мария" : "Иван Петров"));
    }
    EXPECT_EQ(Run({"sign", "a.txt"}).status, 2) << "two keys on the card need a choice";
}

TEST_F(TokenCommandTest, OffersCardsBesideFoldersOnlyWhenAsked) {
    if (!SoftToken::Available()) GTEST_SKIP() << "SoftHSM2 or pkcs11-tool is not installed";
    SoftToken token(profile_);
    token.Put(pki_.signer, "01");
    InstallCertificate(profile_, "MY", Issue({.subject = {{"CN", "Мария"}}, .key = TestKey(KeyType::p256)}, pki_.ca),
                       true);
    EXPECT_EQ(Run({"sign", "a.txt"}).status, 0);
    const auto both = Run({"sign", "a.txt", "--tokens"});
    EXPECT_EQ(both.status, 2);
    EXPECT_THAT(both.errors, AllOf(HasSubstr("Мария"), HasSubstr("Иван Петров")));
}

TEST_F(TokenCommandTest, TriesAWrongPinOnceForAllFiles) {
    InsertFakeCard(2);  // a second try would block it
    const auto result = Run({"sign", "a.txt", "b.txt", "--pin-stdin"}, "9999\n");
    EXPECT_EQ(result.status, 1);
    EXPECT_THAT(result.errors, AllOf(HasSubstr("a.txt: не е подписан. Грешен ПИН код."),
                                     HasSubstr("не са подписани: 1"), Not(HasSubstr("блокирана"))));
    ExpectNothingSigned();
    EXPECT_EQ(Run({"sign", "a.txt", "b.txt", "--pin-stdin"}, "1234\n").status, 0);
}

TEST_F(TokenCommandTest, NeverGivesTheLastTryToAScript) {
    InsertFakeCard(1);
    const auto right = Run({"sign", "a.txt", "--pin-stdin"}, "1234\n");
    EXPECT_EQ(right.status, 1);
    EXPECT_THAT(right.errors, HasSubstr("Остава последен опит за ПИН"));
    ExpectNothingSigned();
    fs::current_path(Documents());
    Terminal terminal(Line({"sign", "a.txt"}));
    ASSERT_TRUE(terminal.Expect("това е последният опит")) << terminal.Seen();
    ASSERT_TRUE(terminal.Expect("ПИН за „Fake card“: "));
    terminal.Type("1234\n");
    EXPECT_EQ(terminal.Wait(), 0) << terminal.Seen();
}

TEST_F(TokenCommandTest, SaysThatACardIsBlockedOrNobodyCanBeAsked) {
    InsertFakeCard(0);
    EXPECT_THAT(Run({"sign", "a.txt", "--pin-stdin"}, "1234\n").errors, HasSubstr("Картата е блокирана"));
    InsertFakeCard(3);
    const auto nobody = Run({"sign", "a.txt", "b.txt"});
    EXPECT_EQ(nobody.status, 1);
    EXPECT_THAT(nobody.errors, AllOf(HasSubstr("отказано"), HasSubstr("--pin-stdin")));
    EXPECT_EQ(Run({"sign", "a.txt", "--pin-stdin"}, "").status, 2);
    EXPECT_THAT(Run({"sign", "a.txt", "--pin-stdin"}, "\n").errors, HasSubstr("недопустима дължина"));
    ExpectNothingSigned();
}

TEST_F(TokenCommandTest, AsksAtTheTerminalWithoutShowingWhatIsTyped) {
    InsertFakeCard(3);
    fs::current_path(Documents());
    Terminal signs(Line({"sign", "a.txt", "b.txt"}));
    ASSERT_TRUE(signs.Expect("ПИН за „Fake card“: ")) << signs.Seen();
    EXPECT_FALSE(signs.ShowsKeys());
    signs.Type(
        "77\x15"
        "1234\n");  // Ctrl-U starts anew
    EXPECT_EQ(signs.Wait(), 0) << signs.Seen();
    EXPECT_THAT(signs.Seen(), AllOf(Not(HasSubstr("1234")), HasSubstr("b.txt.p7m")));
    fs::remove("a.txt.p7m");
    fs::remove("b.txt.p7m");

    Terminal cancels(Line({"sign", "a.txt", "b.txt"}));
    ASSERT_TRUE(cancels.Expect("ПИН за „Fake card“: "));
    cancels.Type("12\x03");
    ASSERT_TRUE(cancels.Expect("отказано")) << cancels.Seen();
    EXPECT_EQ(cancels.Wait(), 1);
    ExpectNothingSigned();

    // The shell lives on at a terminal whose program was ended from outside.
    Terminal ended(
        {"sh", "-c", "\"$@\"; stty -a; sleep 9", "sh", "env", Line({})[1], Line({})[2], Line({})[3], "sign", "a.txt"});
    ASSERT_TRUE(ended.Expect("ПИН за „Fake card“: "));
    EXPECT_FALSE(ended.ShowsKeys());
    const auto shell = std::to_string(ended.Id());
    const pid_t command = std::stoi(ReadFile("/proc/" + shell + "/task/" + shell + "/children"));
    ASSERT_EQ(kill(command, SIGTERM), 0);
    ASSERT_TRUE(ended.Expect("speed")) << ended.Seen();
    EXPECT_TRUE(ended.ShowsKeys());
}

}  // namespace

// Signing with keys on cards, as far as the command decides: which PIN goes where and how often.

#include <csignal>

#include "tests/support/SoftToken.h"
#include "tests/tools/CommandTest.h"

namespace {

using namespace tests;

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
    static void ExpectNothingSigned() { EXPECT_THAT(FilesIn(), ElementsAre("a.txt", "b.txt")); }

    const Certificate maria_ = Issue({.subject = {{"CN", "Мария"}}, .key = TestKey(KeyType::p256)}, pki_.ca);
};

TEST_F(TokenCommandTest, SignsOnTheCardWithThePinFromStandardInput) {
    if (!SoftToken::Available()) GTEST_SKIP() << "SoftHSM2 or pkcs11-tool is not installed";
    SoftToken token(profile_);
    token.Put(pki_.signer, "01");
    token.Put(maria_, "02");
    for (const auto& [certificate, name] : {std::pair{pki_.signer, "Иван Петров"}, {maria_, "Мария"}}) {
        Walk({{"sign a.txt b.txt --pin-stdin --certificate " + certificate.Thumbprint(), 0, {}, token.Pin() + "\n"}});
        EXPECT_EQ(AcceptedContent("a.txt.p7m"), "first");
        EXPECT_EQ(AcceptedContent("b.txt.p7m"), "second");
        EXPECT_THAT(Run("verify b.txt.p7m").output, HasSubstr(name));
    }
    // Two keys on the card need a choice, and cards are offered beside folders only when asked for.
    Walk({{"sign a.txt", 2}});
    InstallCertificate(profile_, "MY", pki_.signer, true);
    Walk({{"sign a.txt", 0}, {"sign a.txt --tokens", 2, {"Мария", "Иван Петров"}}});
}

TEST_F(TokenCommandTest, TriesAWrongPinOnceForAllFiles) {
    InsertFakeCard(2);  // a second try would block it
    const std::string line = "sign a.txt b.txt --pin-stdin";
    Walk({{line, 1, {"a.txt: не е подписан. Грешен ПИН код.", "не са подписани: 1", "!блокирана"}, "9999\n"}});
    ExpectNothingSigned();
    Walk({{line, 0, {}, "1234\n"}});
}

TEST_F(TokenCommandTest, NeverGivesTheLastTryToAScript) {
    InsertFakeCard(1);
    Walk({{"sign a.txt --pin-stdin", 1, {"Остава последен опит за ПИН"}, "1234\n"}});
    ExpectNothingSigned();
    Terminal terminal("exec norvik sign a.txt");
    terminal.Answer({{"това е последният опит", ""}, {"ПИН за „Fake card“: ", "1234\n"}});
    EXPECT_EQ(terminal.Wait(), 0) << terminal.Seen();
}

TEST_F(TokenCommandTest, SaysThatACardIsBlockedOrNobodyCanBeAsked) {
    InsertFakeCard(0);
    Walk({{"sign a.txt --pin-stdin", 1, {"Картата е блокирана"}, "1234\n"}});
    InsertFakeCard(3);
    Walk({{"sign a.txt b.txt", 1, {"отказано", "--pin-stdin"}},
          {"sign a.txt --pin-stdin", 2},
          {"sign a.txt --pin-stdin", 1, {"недопустима дължина"}, "\n"}});
    ExpectNothingSigned();
}

TEST_F(TokenCommandTest, AsksAtTheTerminalWithoutShowingWhatIsTyped) {
    InsertFakeCard(3);
    const std::string question = "ПИН за „Fake card“: ";
    Terminal cancels("exec norvik sign a.txt b.txt");
    cancels.Answer({{question, "12\x03"}, {"отказано", ""}});
    EXPECT_EQ(cancels.Wait(), 1);
    ExpectNothingSigned();

    Terminal signs("exec norvik sign a.txt b.txt");
    signs.Expect(question);
    EXPECT_FALSE(signs.ShowsKeys());
    for (const char* const keys :
         {"77", "\x15", "12x", "\x7F", "34\n"})  // Ctrl-U starts anew, and a slip is taken back
        signs.Type(keys);
    EXPECT_EQ(signs.Wait(), 0) << signs.Seen();
    EXPECT_THAT(signs.Seen(), AllOf(Not(HasSubstr("1234")), HasSubstr("b.txt.p7m")));

    // The shell lives on at a terminal whose program was ended from outside.
    Terminal ended("norvik sign a.txt; stty -a; sleep 9");
    ended.Expect(question);
    EXPECT_FALSE(ended.ShowsKeys());
    const auto shell = std::to_string(ended.Id());
    ASSERT_EQ(kill(std::stoi(ReadFile("/proc/" + shell + "/task/" + shell + "/children")), SIGTERM), 0);
    ASSERT_TRUE(ended.Expect("speed"));
    EXPECT_TRUE(ended.ShowsKeys());
}

}  // namespace

#include "tests/support/TsaServer.h"
#include "tests/tools/CommandTest.h"

namespace {

using namespace tests;

class SignCommandTest : public CommandTest {
  protected:
    SignCommandTest() {
        pki_.Install(profile_);
        Document("a.txt", "first");
        Document("Договор №5.pdf", "second");
    }
    // A second person, with or without a key, in MY.
    Certificate InstallAnother(CertificateSpec spec = {}, bool withKey = true) const {
        spec.subject = {{"CN", "Мария Иванова"}};
        spec.key = TestKey(KeyType::p256);
        const auto another = Issue(spec, pki_.ca);
        InstallCertificate(profile_, "MY", another, withKey);
        return another;
    }
};

TEST_F(SignCommandTest, SignsEveryFileThatIsNamedAndOthersAcceptIt) {
    Walk({{"sign a.txt 'Договор №5.pdf'", 0, {"=a.txt.p7m\nДоговор №5.pdf.p7m\n"}},
          {"sign --detached --output-folder out a.txt", 0, {"=out/a.txt.p7s\n"}}});
    EXPECT_EQ(AcceptedContent("a.txt.p7m"), "first");
    EXPECT_EQ(AcceptedContent("Договор №5.pdf.p7m"), "second");
    EXPECT_EQ(AcceptedContent("out/a.txt.p7s", "a.txt"), "first");
    EXPECT_THAT(FilesIn("out"), ElementsAre("a.txt.p7s"));
    EXPECT_EQ(ReadFile("a.txt"), "first");
}

TEST_F(SignCommandTest, SignsASecondTimeAsIfItWereTheFirstButNeverTwoFilesIntoOneResult) {
    Document("a.txt.p7m", "an old result");
    Document("a.txt.p7s", "another form");
    Document("other/a.txt", "not the same");
    Walk({{"sign a.txt", 0},
          {"sign a.txt.p7m", 0, {"a.txt.p7m.p7m\n"}},
          {"sign a.txt other/a.txt --output-folder out", 2, {"other/a.txt"}},
          {"sign a.txt ./a.txt.p7m", 2, {"a.txt.p7m е сред файловете"}}});
    EXPECT_FALSE(fs::exists("out"));
    EXPECT_EQ(AcceptedContent("a.txt.p7m"), "first");
    EXPECT_EQ(ReadFile("a.txt.p7s"), "another form");
    EXPECT_EQ(AcceptedContent("a.txt.p7m.p7m"), ReadFile("a.txt.p7m"));
    Walk({{"sign a.txt other/a.txt", 0}});
}

TEST_F(SignCommandTest, TakesTheCertificateThatIsNamedHoweverItIsWritten) {
    const auto maria = InstallAnother().Thumbprint();
    const auto spaced = "$(echo " + maria + " | tr A-F a-f | sed 's/\\(..\\)\\(..\\)/\\1 \\2:/g; s/:$//')";
    const std::string seen = "\" a.txt && norvik verify a.txt.p7m; rm a.txt.p7m";
    Walk({{maria + seen, 0, {"Мария Иванова"}},
          {spaced + seen, 0, {"Мария Иванова"}},
          {"\" a.txt", 2},
          {"Мария Иванова\" a.txt", 2},
          {maria.substr(1) + "\" a.txt", 2},
          {maria.substr(1) + "Я\" a.txt", 2},
          {std::string(40, '0') + "\" a.txt", 1}},
         "norvik sign --certificate \"");
    EXPECT_FALSE(fs::exists("a.txt.p7m"));
}

TEST_F(SignCommandTest, LeavesTheChoiceBetweenSeveralToThePerson) {
    InstallAnother();
    Walk({{"sign a.txt", 2, {"--certificate", "Мария Иванова", "Иван Петров", pki_.signer.Thumbprint()}}});

    Terminal chooses("exec norvik sign a.txt");
    chooses.Answer({{"Номер: ", "7\n"}, {"Номер: ", "2\n"}});
    EXPECT_EQ(chooses.Wait(), 0) << chooses.Seen();
    const bool mariaIsSecond = chooses.Seen().find("2. Мария") != std::string::npos;
    Walk({{"verify a.txt.p7m; rm a.txt.p7m", 0, {mariaIsSecond ? "Мария Иванова" : "Иван Петров"}}});

    Terminal declines("exec norvik sign a.txt");
    declines.Answer({{"Номер: ", "\n"}});
    EXPECT_EQ(declines.Wait(), 2) << declines.Seen();
    EXPECT_FALSE(fs::exists("a.txt.p7m"));
}

TEST_F(SignCommandTest, TellsWhyNoCertificateIsGoodForSigning) {
    const auto empty = [&] { fs::remove_all(profile_.Stores() / "MY"); };
    empty();
    Walk({{"sign a.txt", 1, {"norvik store import"}}});
    const struct {
        CertificateSpec spec;
        const char* why;
        bool withKey = true;
    } cases[] = {{{}, "без частен ключ", false},
                 {{.notBefore = 1'500'000'000, .notAfter = 1'600'000'000}, "с изтекъл срок"},
                 {{.notBefore = std::time(nullptr) + kDay}, "още не е валиден"},
                 {{.keyUsage = "keyEncipherment"}, "не е за подписване"}};
    for (const auto& [spec, why, withKey] : cases) {
        empty();
        const auto certificate = InstallAnother(spec, withKey);
        Walk({{"", 1, {std::string("Мария Иванова: ") + why}},
              {"--certificate " + certificate.Thumbprint(), withKey ? 0 : 1, {why}}},
             "norvik sign a.txt ");
        EXPECT_EQ(fs::remove("a.txt.p7m"), withKey);
    }
}

TEST_F(SignCommandTest, TakesTheTimeFromTheAuthorityThatIsWanted) {
    const TsaServer tsa(pki_.tsa, {pki_.ca}), other(pki_.tsa, {pki_.ca});
    Walk({{"tsa add Първа " + tsa.Url() + " --default", 0}, {"tsa add Втора " + other.Url(), 0}});
    struct Case {
        std::string options;
        std::size_t first, second;  // requests
    };
    for (const auto& [options, first, second] : {Case{"", 1, 0},
                                                 {"--no-tsa", 0, 0},
                                                 {"--tsa Втора", 0, 1},
                                                 {"--tsa " + other.Url(), 0, 1},
                                                 {"--tsa Първа --detached", 1, 0}}) {
        const auto before = std::pair(tsa.Requests().size(), other.Requests().size());
        const std::string told = "Norvik Test TSA, вярно";
        const auto verdict = Run("verify $(norvik sign a.txt " + options + ")").output;
        EXPECT_EQ(verdict.find(told) != std::string::npos, first + second > 0) << options << verdict;
        EXPECT_THAT(verdict, HasSubstr("подпис: верен"));
        EXPECT_EQ(tsa.Requests().size() - before.first, first) << options;
        EXPECT_EQ(other.Requests().size() - before.second, second) << options;
    }
}

TEST_F(SignCommandTest, SignsNothingWithoutTheTimeThatWasAskedFor) {
    TsaServer tsa(pki_.tsa, {pki_.ca}, {.reply = TsaBehaviour::Reply::rejected});
    Walk({{"'Няма такава'", 2, {"Няма TSA с име „Няма такава“"}},
          {"''", 2, {"Няма TSA"}},
          {tsa.Url(), 1, {"a.txt: не е подписан.\n"}},
          {"http://127.0.0.1:1/", 1, {"Няма връзка със сървъра."}}},
         "norvik sign a.txt --tsa ");
    EXPECT_THAT(FilesIn(), ElementsAre("a.txt", "Договор №5.pdf"));
}

TEST_F(SignCommandTest, WritesDerOrderForThoseWhoInsistOnIt) {
    if (!HasProgram("certtool")) GTEST_SKIP() << "no certtool";
    profile_.Write("documents/root.pem", pki_.root.Pem());
    const std::string check = "certtool --p7-verify --inder --infile a.txt.p7m --load-ca-certificate root.pem";
    for (const bool derOrder : {false, true}) {
        Walk({{derOrder ? "sign --der-order a.txt" : "sign --no-tsa a.txt", 0}});
        EXPECT_EQ(Shell(check).status == 0, derOrder);
        EXPECT_EQ(AcceptedContent("a.txt.p7m"), "first");
    }
}

}  // namespace

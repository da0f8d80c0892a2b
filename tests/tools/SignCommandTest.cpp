#include "tests/support/TsaServer.h"
#include "tests/tools/CommandTest.h"

namespace {

namespace fs = std::filesystem;
using namespace tests;
using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;

class SignCommandTest : public CommandTest {
  protected:
    SignCommandTest() {
        pki_.Install(profile_);
        Document("a.txt", "first");
        Document("Договор №5.pdf", "second");
    }
    // A second person with a key in MY.
    Certificate InstallAnother(CertificateSpec spec = {}, bool withKey = true) {
        spec.subject = {{"CN", "Мария Иванова"}};
        spec.key = TestKey(KeyType::p256);
        const auto another = Issue(spec, pki_.ca);
        InstallCertificate(profile_, "MY", another, withKey);
        return another;
    }
    [[nodiscard]] std::string SignerOf(const std::string& message) const { return Run({"verify", message}).output; }
};

TEST_F(SignCommandTest, SignsEveryFileThatIsNamedAndOthersAcceptIt) {
    const auto attached = Run({"sign", "a.txt", "Договор №5.pdf"});
    EXPECT_EQ(attached.status, 0) << attached.Summary();
    EXPECT_EQ(attached.output, "a.txt.p7m\nДоговор №5.pdf.p7m\n");
    EXPECT_EQ(AcceptedContent("a.txt.p7m"), "first");
    EXPECT_EQ(AcceptedContent("Договор №5.pdf.p7m"), "second");

    const auto detached = Run({"sign", "--detached", "--output-folder", "out", "a.txt"});
    EXPECT_EQ(detached.output, "out/a.txt.p7s\n") << detached.Summary();
    EXPECT_EQ(AcceptedContent("out/a.txt.p7s", "a.txt"), "first");
    EXPECT_THAT(FilesIn(Documents() / "out"), ElementsAre("a.txt.p7s"));
    EXPECT_EQ(ReadFile(Documents() / "a.txt"), "first");
}

TEST_F(SignCommandTest, SignsASecondTimeAsIfItWereTheFirstButNeverTwoFilesIntoOneResult) {
    Document("a.txt.p7m", "an old result");
    Document("a.txt.p7s", "another form");
    Document("other/a.txt", "not the same");
    Walk({{{"sign", "a.txt"}, 0},
          {{"sign", "a.txt.p7m"}, 0, "a.txt.p7m.p7m\n"},
          {{"sign", "a.txt", "other/a.txt", "--output-folder", "out"}, 2, "other/a.txt"}});
    EXPECT_FALSE(fs::exists(Documents() / "out"));
    EXPECT_EQ(AcceptedContent("a.txt.p7m"), "first");
    EXPECT_EQ(ReadFile(Documents() / "a.txt.p7s"), "another form");
    EXPECT_EQ(AcceptedContent("a.txt.p7m.p7m"), ReadFile(Documents() / "a.txt.p7m"));
    EXPECT_EQ(Run({"sign", "a.txt", "other/a.txt"}).status, 0);
}

TEST_F(SignCommandTest, TakesTheCertificateThatIsNamedHoweverItIsWritten) {
    const auto maria = InstallAnother();
    const auto upper = maria.Thumbprint();
    std::string colons;
    for (std::size_t i = 0; i < upper.size(); i += 2)
        (colons += i == 0 ? "" : i % 4 == 0 ? ":" : " ") += upper.substr(i, 2);
    for (char& c : colons)
        c = static_cast<char>(std::tolower(c));
    for (const auto& spelling : {upper, colons}) {
        const auto result = Run({"sign", "--certificate", spelling, "a.txt"});
        EXPECT_EQ(result.status, 0) << spelling << result.Summary();
        EXPECT_THAT(SignerOf("a.txt.p7m"), HasSubstr("Мария Иванова"));
        fs::remove(Documents() / "a.txt.p7m");
    }
    Walk({{{"", "a.txt"}, 2},
          {{"Мария Иванова", "a.txt"}, 2},
          {{upper.substr(1), "a.txt"}, 2},
          {{upper.substr(1) + "Я", "a.txt"}, 2},
          {{std::string(40, '0'), "a.txt"}, 1}},
         {"sign", "--certificate"});
    EXPECT_FALSE(fs::exists(Documents() / "a.txt.p7m"));
}

TEST_F(SignCommandTest, LeavesTheChoiceBetweenSeveralToThePerson) {
    InstallAnother();
    const auto silent = Run({"sign", "a.txt"});
    EXPECT_EQ(silent.status, 2);
    EXPECT_THAT(silent.errors, AllOf(HasSubstr("--certificate"), HasSubstr("Мария Иванова"), HasSubstr("Иван Петров"),
                                     HasSubstr(pki_.signer.Thumbprint())));

    fs::current_path(Documents());
    Terminal chooses(Line({"sign", "a.txt"}));
    ASSERT_TRUE(chooses.Expect("Номер: ")) << chooses.Seen();
    const auto second = chooses.Seen().substr(chooses.Seen().find("2. "));
    chooses.Type("7\n");
    ASSERT_TRUE(chooses.Expect("Номер: ")) << chooses.Seen();
    chooses.Type("2\n");
    EXPECT_EQ(chooses.Wait(), 0) << chooses.Seen();
    const bool mariaIsSecond = second.starts_with("2. Мария");
    EXPECT_THAT(SignerOf("a.txt.p7m"), HasSubstr(mariaIsSecond ? "Мария Иванова" : "Иван Петров"));

    fs::remove("a.txt.p7m");
    Terminal declines(Line({"sign", "a.txt"}));
    ASSERT_TRUE(declines.Expect("Номер: "));
    declines.Type("\n");
    EXPECT_EQ(declines.Wait(), 2) << declines.Seen();
    EXPECT_FALSE(fs::exists("a.txt.p7m"));
}

TEST_F(SignCommandTest, TellsWhyNoCertificateIsGoodForSigning) {
    fs::remove_all(profile_.Stores() / "MY");
    const auto none = Run({"sign", "a.txt"});
    EXPECT_EQ(none.status, 1);
    EXPECT_THAT(none.errors, HasSubstr("norvik store import"));

    const std::pair<CertificateSpec, const char*> unfit[] = {
        {{}, "без частен ключ"},
        {{.notBefore = 1'500'000'000, .notAfter = 1'600'000'000}, "с изтекъл срок"},
        {{.notBefore = std::time(nullptr) + kDay}, "още не е валиден"},
        {{.keyUsage = "keyEncipherment"}, "не е за подписване"}};
    for (const auto& [spec, why] : unfit) {
        fs::remove_all(profile_.Stores() / "MY");
        const bool withKey = std::string(why) != "без частен ключ";
        const auto certificate = InstallAnother(spec, withKey);
        const auto result = Run({"sign", "a.txt"});
        EXPECT_EQ(result.status, 1) << why;
        EXPECT_THAT(result.errors, AllOf(HasSubstr("Мария Иванова: " + std::string(why)))) << result.Summary();
        const auto named = Run({"sign", "--certificate", certificate.Thumbprint(), "a.txt"});
        EXPECT_EQ(named.status, withKey ? 0 : 1) << named.Summary();
        EXPECT_THAT(named.errors, HasSubstr(why));
        EXPECT_EQ(fs::remove(Documents() / "a.txt.p7m"), withKey);
    }
}

TEST_F(SignCommandTest, TakesTheTimeFromTheAuthorityThatIsWanted) {
    const TsaServer tsa(pki_.tsa, {pki_.ca}), other(pki_.tsa, {pki_.ca});
    ASSERT_EQ(Run({"tsa", "add", "Първа", tsa.Url(), "--default"}).status, 0);
    ASSERT_EQ(Run({"tsa", "add", "Втора", other.Url()}).status, 0);
    struct Case {
        std::vector<std::string> options;
        std::size_t first, second;  // requests
    };
    const Case cases[] = {{{}, 1, 0},
                          {{"--no-tsa"}, 0, 0},
                          {{"--tsa", "Втора"}, 0, 1},
                          {{"--tsa", other.Url()}, 0, 1},
                          {{"--tsa", "Първа", "--detached"}, 1, 0}};
    for (const auto& [options, first, second] : cases) {
        const auto before = std::pair(tsa.Requests().size(), other.Requests().size());
        std::vector<std::string> line{"sign", "a.txt"};
        line.insert(line.end(), options.begin(), options.end());
        const auto result = Run(line);
        EXPECT_EQ(result.status, 0) << result.Summary();
        EXPECT_EQ(tsa.Requests().size() - before.first, first);
        EXPECT_EQ(other.Requests().size() - before.second, second);
        const auto verdict = Run({"verify", result.output.substr(0, result.output.size() - 1)}).output;
        EXPECT_EQ(verdict.find("Norvik Test TSA, вярно") != std::string::npos, first + second > 0) << verdict;
    }
}

TEST_F(SignCommandTest, SignsNothingWithoutTheTimeThatWasAskedFor) {
    TsaServer tsa(pki_.tsa, {pki_.ca}, {.reply = TsaBehaviour::Reply::rejected});
    Walk({{{"--tsa", "Няма такава"}, 2, "Няма TSA с име „Няма такава“"},
          {{"--tsa", ""}, 2, "Няма TSA"},
          {{"--tsa", tsa.Url(), "--no-tsa"}, 2, "не се съчетават"},
          {{"--tsa", tsa.Url()}, 1, "a.txt: не е подписан.\n"},
          {{"--tsa", "http://127.0.0.1:1/"}, 1, "Няма връзка със сървъра."}},
         {"sign", "a.txt"});
    EXPECT_THAT(FilesIn(Documents()), ElementsAre("a.txt", "Договор №5.pdf"));
}

TEST_F(SignCommandTest, WritesDerOrderForThoseWhoInsistOnIt) {
    if (!HasProgram("certtool")) GTEST_SKIP() << "no certtool";
    const auto root = profile_.Write("root.pem", pki_.root.Pem());
    for (const bool derOrder : {false, true}) {
        ASSERT_EQ(Run({"sign", derOrder ? "--der-order" : "--no-tsa", "a.txt"}).status, 0);
        const auto verdict = RunProgram({"certtool", "--p7-verify", "--inder", "--infile",
                                         (Documents() / "a.txt.p7m").string(), "--load-ca-certificate", root.string()});
        EXPECT_EQ(verdict.status == 0, derOrder) << verdict.Summary();
        EXPECT_EQ(AcceptedContent("a.txt.p7m"), "first");
    }
}

}  // namespace

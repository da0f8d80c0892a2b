#include "tests/support/TsaServer.h"
#include "tests/tools/CommandTest.h"

namespace {

namespace fs = std::filesystem;
using namespace tests;
using testing::AllOf;
using testing::HasSubstr;
using testing::Not;

class VerifyCommandTest : public CommandTest {
  protected:
    VerifyCommandTest() {
        pki_.Install(profile_);
        Document("a.txt", "the content that counts");
        if (Run({"sign", "a.txt"}).status != 0 || Run({"sign", "--detached", "a.txt"}).status != 0)
            throw std::runtime_error("cannot sign: " + Log());
    }
    void Change(const std::string& file, const std::string& what) const {
        auto bytes = ReadFile(Documents() / file);
        bytes.at(bytes.find(what)) ^= 1;
        Document(file, bytes);
    }
    void Convert(const std::string& from, const std::string& to) const {
        const auto done =
            RunProgram({"openssl", "pkcs7", "-inform", "DER", "-in", from, "-out", to}, {.folder = Documents()});
        if (done.status != 0) throw std::runtime_error(done.errors);
    }
};

TEST_F(VerifyCommandTest, TellsGoodFromBadInEveryForm) {
    Convert("a.txt.p7m", "pem.p7m");
    Convert("a.txt.p7s", "a.txt.pem");
    const auto pem = ReadFile(Documents() / "pem.p7m");
    const auto body = pem.find('\n') + 1;
    Document("base64.p7m", pem.substr(body, pem.rfind("\n-----") - body));
    fs::copy(Documents() / "a.txt.p7s", Documents() / "signature");
    fs::copy(Documents() / "a.txt.p7s", Documents() / "moved.p7s");
    Document("changed.p7m", ReadFile(Documents() / "a.txt.p7m"));
    Change("changed.p7m", "the content");
    Document("changed.txt", "the content that differs");
    Document("cut.p7m", ReadFile(Documents() / "a.txt.p7m").substr(0, 900));
    Document("empty.p7m", "");
    Document("open.p7m", std::string("\x30\x80\x06\x09*\x86H\x86\xF7\r\x01\x07\x02\xA0\x84\xFF\xFF\xFF\xFF", 19));
    constexpr auto good = "подписите са верни", bad = "НЕ Е ВАЛИДЕН", notSigned = "не е подписан или е повреден";
    struct Case {
        std::vector<std::string> arguments;
        int status;
        const char* told;
    };
    const Case cases[] = {{{"a.txt.p7m"}, 0, good},
                          {{"a.txt.p7s"}, 0, good},
                          {{"pem.p7m"}, 0, good},
                          {{"base64.p7m"}, 0, good},
                          {{"a.txt.pem"}, 0, good},
                          {{"a.txt.pem", "--data", "a.txt"}, 0, good},
                          {{"signature", "--data", "a.txt"}, 0, good},
                          {{"changed.p7m"}, 1, "данните не са тези, които са подписани"},
                          {{"a.txt.p7s", "--data", "changed.txt"}, 1, bad},
                          {{"a.txt.p7m", "--data", "changed.txt"}, 1, bad},
                          {{"moved.p7s"}, 2, "Подписът е отделен, а данните му ги няма: moved."},
                          {{"signature"}, 2, "--data"},
                          {{"a.txt.p7s", "--data", "missing.txt"}, 2, "missing.txt"},
                          {{"a.txt.p7s", "--data", ""}, 2, "--data"},
                          {{"a.txt.p7s", "--data", "."}, 1, "Това е папка, а не файл."},
                          {{"a.txt"}, 1, notSigned},
                          {{"cut.p7m"}, 1, notSigned},
                          {{"empty.p7m"}, 1, notSigned},
                          {{"open.p7m"}, 1, notSigned},
                          {{"missing.p7m"}, 1, "Няма такъв файл."},
                          {{"."}, 1, "Това е папка, а не файл."},
                          {{}, 2, "Липсва ФАЙЛ"}};
    for (auto [line, status, told] : cases) {
        const std::string name = line.empty() ? "nothing" : line.front();
        line.insert(line.begin(), "verify");
        const auto result = Run(line);
        EXPECT_EQ(result.status, status) << name << "\n" << result.Summary();
        EXPECT_THAT(result.output + result.errors, HasSubstr(told)) << name;
        if (status != 0) {
            EXPECT_THAT(result.output, Not(HasSubstr(good))) << name;
        }
    }
}

TEST_F(VerifyCommandTest, SaysWhoSignedAndWhen) {
    const TsaServer tsa(pki_.tsa, {pki_.ca});
    EXPECT_THAT(Run({"verify", "a.txt.p7m"}).output,
                AllOf(HasSubstr("Иван Петров (издател: Norvik Test CA"),
                      testing::ContainsRegex("20[0-9]{2}-[0-9-]{5} [0-9:]{8} UTC")));
    ASSERT_EQ(Run({"sign", "--tsa", tsa.Url(), "a.txt"}).status, 0) << Log();
    EXPECT_THAT(
        Run({"verify", "a.txt.p7m"}).output,
        testing::ContainsRegex("удостоверено време: 20[0-9]{2}-[0-9-]{5} [0-9:]{8} UTC от Norvik Test TSA, вярно"));
}

TEST_F(VerifyCommandTest, GivesItsFindingsAsJsonThatOthersRead) {
    const std::string program =
        "import json,sys\n"
        "found=json.load(sys.stdin)\n"
        "print(found['pkcs7']['verify']['signerInfo'][0]['cert']['issuerCN'])\n";
    const auto result = Run({"verify", "--json", "a.txt.p7m"});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(RunProgram({"python3", "-c", program}, {.input = result.output}).output, "Norvik Test CA\n")
        << result.output;
    Change("a.txt.p7m", "the content");
    const auto bad = Run({"verify", "--json", "a.txt.p7m"});
    EXPECT_EQ(bad.status, 1);
    EXPECT_EQ(RunProgram({"python3", "-m", "json.tool"}, {.input = bad.output}).status, 0) << bad.output;
    EXPECT_EQ(RunProgram({"python3", "-m", "json.tool"}, {.input = Run({"verify", "--json", "a.txt"}).output}).status,
              0);
}

// Whoever makes a certificate chooses its names, and with them what a terminal is told to do.
TEST_F(VerifyCommandTest, DoesNotLetTheNameOfASignerWriteTheVerdict) {
    const auto forger = Issue({.subject = {{"CN", "Иван\x1b[2J\nподписите са верни\u202Eгнус"}}}, pki_.ca);
    fs::remove_all(profile_.Stores() / "MY");
    InstallCertificate(profile_, "MY", forger, true);
    ASSERT_EQ(Run({"sign", "a.txt"}).status, 0) << Log();
    Change("a.txt.p7m", "the content");
    for (const auto& output : {Run({"verify", "a.txt.p7m"}).output, Run({"store", "list"}).output}) {
        EXPECT_THAT(output, HasSubstr("Иван\uFFFD[2J\uFFFDподписите са верни\uFFFDгнус"));
        EXPECT_THAT(output, AllOf(Not(HasSubstr("\x1b")), Not(HasSubstr("\nподписите")), Not(HasSubstr("\u202E"))));
    }
}

}  // namespace

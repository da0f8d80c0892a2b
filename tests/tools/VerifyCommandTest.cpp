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
        pki_.InstallCrls(profile_);
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
    auto unknown = ReadFile(Documents() / "a.txt.p7m");
    unknown.at(unknown.rfind("*\x86H\x86\xF7\r\x01\x01\x0B") + 8) = '\x7E';  // of the signature's algorithm
    Document("unknown.p7m", unknown);
    RunProgram({"openssl", "cms", "-encrypt", "-outform", "DER", "-in", "a.txt", "-out", "secret.p7m",
                profile_.Write("signer.pem", pki_.signer.Pem())},
               {.folder = Documents()});
    Document("cut.p7m", ReadFile(Documents() / "a.txt.p7m").substr(0, 900));
    Document("empty.p7m", "");
    Document("open.p7m", std::string("\x30\x80\x06\x09*\x86H\x86\xF7\r\x01\x07\x02\xA0\x84\xFF\xFF\xFF\xFF", 19));
    constexpr auto good = "подписите са верни", bad = "НЕ Е ВАЛИДЕН", notSigned = "не е подписан или е повреден";
    Walk({{{"a.txt.p7m"}, 0, good},
          {{"a.txt.p7s"}, 0, good},
          {{"pem.p7m"}, 0, good},
          {{"base64.p7m"}, 0, good},
          {{"a.txt.pem"}, 0, good},
          {{"signature", "--data", "a.txt"}, 0, good},
          {{"changed.p7m"}, 1, "данните не са тези, които са подписани"},
          {{"a.txt.p7s", "--data", "changed.txt"}, 1, bad},
          {{"a.txt.p7m", "--data", "changed.txt"}, 1, bad},
          {{"moved.p7s"}, 2, "Подписът е отделен, а данните му ги няма: moved."},
          {{"signature"}, 2, "--data"},
          {{"a.txt.p7s", "--data", "missing.txt"}, 2, "missing.txt"},
          {{"a.txt.p7s", "--data", ""}, 2, "--data"},
          {{"a.txt.p7s", "--data", "."}, 3, "Това е папка, а не файл."},
          {{"unknown.p7m"}, 3, "алгоритъмът на подписа не се поддържа"},
          {{"secret.p7m"}, 1, "от друг вид, например шифрирано"},
          {{"a.txt"}, 1, notSigned},
          {{"cut.p7m"}, 1, notSigned},
          {{"empty.p7m"}, 1, notSigned},
          {{"open.p7m"}, 1, notSigned},
          {{"missing.p7m"}, 3, "Няма такъв файл."},
          {{"."}, 3, "Това е папка, а не файл."},
          {{}, 2, "Липсва ФАЙЛ"}},
         {"verify"});
    EXPECT_THAT(Run({"verify", "changed.p7m"}).output, Not(HasSubstr(good)));
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
    auto bytes = ReadFile(Documents() / "a.txt.p7m");
    bytes.back() ^= 1;  // of the token's signature
    Document("a.txt.p7m", bytes);
    const auto broken = Run({"verify", "a.txt.p7m"});
    EXPECT_EQ(broken.status, 1) << broken.Summary();
    EXPECT_THAT(broken.output, AllOf(HasSubstr("подпис: верен"), HasSubstr("НЕ Е ВЯРНО")));
}

TEST_F(VerifyCommandTest, GivesItsFindingsAsJsonThatOthersRead) {
    const std::string program =
        "import json,sys\n"
        "for f in json.load(sys.stdin):\n"
        "  print(f['SignFile'], f['Status'], [s['SignStatus']+s['CertStatus']+s['Certificate']['Issuer'] for s in "
        "f['Signatures']], f.get('ErrorMessage'))\n";
    Document("bad.p7m", ReadFile(Documents() / "a.txt.p7m"));
    Change("bad.p7m", "the content");
    const auto result = Run({"verify", "--json", "a.txt.p7m", "bad.p7m", "a.txt", "missing.p7m"});
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(RunProgram({"python3", "-c", program}, {.input = result.output}).output,
              "a.txt.p7m valid ['okokNorvik Test CA'] None\n"
              "bad.p7m invalid ['failokNorvik Test CA'] None\n"
              "a.txt error [] файлът не е подписан или е повреден\n"
              "missing.p7m error [] не може да се прочете. Няма такъв файл.\n")
        << result.output << result.errors;
}

TEST_F(VerifyCommandTest, TellsAtTheEndWhichOfManyFilesAreGood) {
    Document("bad.p7m", ReadFile(Documents() / "a.txt.p7m"));
    Change("bad.p7m", "the content");
    const auto good = Run({"verify", "a.txt.p7m", "a.txt.p7s"});
    EXPECT_EQ(good.status, 0) << good.Summary();
    EXPECT_THAT(good.output, testing::EndsWith("\nРезултат       Подписи  Файл\n"
                                               "верен          1        a.txt.p7m\n"
                                               "верен          1        a.txt.p7s\n"
                                               "Верни: 2 от 2.\n"));
    fs::copy(Documents() / "a.txt.p7s", Documents() / "alone.p7s");
    const auto mixed = Run({"verify", "missing.p7m", "alone.p7s", "bad.p7m", "a.txt.p7m"});
    EXPECT_EQ(mixed.status, 1);
    EXPECT_THAT(mixed.output,
                AllOf(HasSubstr("НЕ Е ПРОВЕРЕН  0        missing.p7m\n"),
                      HasSubstr("НЕ Е ПРОВЕРЕН  0        alone.p7s\n"), HasSubstr("НЕ Е ВАЛИДЕН   1        bad.p7m\n"),
                      HasSubstr("верен          1        a.txt.p7m\n"), HasSubstr("Верни: 1 от 4.")));
    Walk({{{"verify", "a.txt.p7s", "alone.p7s", "--data", "a.txt"}, 2}, {{"verify", "a.txt.p7s", "alone.p7s"}, 3}});
}

TEST_F(VerifyCommandTest, SaysThatThereIsNoWindowWithoutADisplay) {
    const auto result = RunBelow({"env", "-u", "DISPLAY", "-u", "WAYLAND_DISPLAY", "-u", "QT_QPA_PLATFORM"},
                                 {"verify", "--dialog", "a.txt.p7m"});
    EXPECT_EQ(result.status, 1) << result.Summary();
    EXPECT_THAT(result.errors, testing::Not(testing::IsEmpty()));
    EXPECT_EQ(Run({"verify", "--dialog", "--json", "a.txt.p7m"}).status, 2);
}

// A certificate that nobody can vouch for is neither good nor bad.
TEST_F(VerifyCommandTest, TellsBadCertificatesFromThoseThatCannotBeChecked) {
    const auto verdict = [&](const char* told, int status) {
        const auto result = Run({"verify", "--offline", "a.txt.p7m"});
        EXPECT_EQ(result.status, status) << result.Summary();
        EXPECT_THAT(result.output, AllOf(HasSubstr("подпис: верен"), HasSubstr(told)));
    };
    const auto withoutCrls = [&] {
        for (const auto& entry : fs::directory_iterator(profile_.Stores() / "CA")) {
            if (entry.path().extension() == ".crl") fs::remove(entry.path());
        }
    };
    withoutCrls();
    verdict("сертификат: НЕ Е ПРОВЕРЕН: Функцията за анулиране не успя да провери отмяната на сертификата.", 3);
    pki_.InstallCrls(profile_, {{pki_.signer.Serial(), 1'700'000'000, 1}});
    verdict("сертификат: НЕ Е ВЕРЕН: Сертификатът или подписът са отменени.", 1);
    withoutCrls();
    pki_.InstallCrls(profile_);
    fs::remove_all(profile_.Stores() / "ROOT");
    verdict("сертификат: НЕ Е ВЕРЕН: Веригата за сертифициране", 1);
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

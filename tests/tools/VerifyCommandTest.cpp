#include "tests/support/TsaServer.h"
#include "tests/toolkit/MessageParts.h"
#include "tests/tools/CommandTest.h"

namespace {

using namespace tests;
using testing::ContainsRegex;

class VerifyCommandTest : public CommandTest {
  protected:
    VerifyCommandTest() { SignADocument(); }
};

TEST_F(VerifyCommandTest, TellsGoodFromBadInEveryForm) {
    const auto attached = ReadFile("a.txt.p7m");
    Change("a.txt.p7m", "changed.p7m");
    Document("changed.txt", "the content that differs");
    auto unknown = attached;
    unknown.at(unknown.rfind("*\x86H\x86\xF7\r\x01\x01\x0B") + 8) = '\x7E';  // of the signature's algorithm
    Document("unknown.p7m", unknown);
    Document("cut.p7m", attached.substr(0, 900));
    Document("empty.p7m", "");
    Document("open.p7m", std::string("\x30\x80\x06\x09*\x86H\x86\xF7\r\x01\x07\x02\xA0\x84\xFF\xFF\xFF\xFF", 19));
    Document("signer.pem", pki_.signer.Pem());
    Walk({{"openssl pkcs7 -inform DER -in a.txt.p7m -out pem.p7m && grep -v '^-' pem.p7m > base64.p7m", 0},
          {"openssl pkcs7 -inform DER -in a.txt.p7s -out a.txt.pem", 0},
          {"openssl cms -encrypt -outform DER -in a.txt -out secret.p7m signer.pem", 0},
          {"cp a.txt.p7s signature && cp a.txt.p7s moved.p7s", 0}},
         "");
    constexpr auto good = "подписите са верни", bad = "НЕ Е ВАЛИДЕН", notSigned = "не е подписан или е повреден";
    Walk({{"a.txt.p7m", 0, {good}},
          {"a.txt.p7s", 0, {good}},
          {"pem.p7m", 0, {good}},
          {"base64.p7m", 0, {good}},
          {"a.txt.pem", 0, {good}},
          {"signature --data a.txt", 0, {good}},
          {"changed.p7m", 1, {"данните не са тези, които са подписани", std::string("!") + good}},
          {"a.txt.p7s --data changed.txt", 1, {bad}},
          {"a.txt.p7m --data changed.txt", 1, {bad}},
          {"moved.p7s", 2, {"Подписът е отделен, а данните му ги няма: moved."}},
          {"signature", 2, {"--data"}},
          {"a.txt.p7s --data missing.txt", 2, {"missing.txt"}},
          {"a.txt.p7s --data ''", 2, {"--data"}},
          {"a.txt.p7s --data .", 3, {"Това е папка, а не файл."}},
          {"unknown.p7m", 3, {"алгоритъмът на подписа не се поддържа"}},
          {"secret.p7m", 1, {"от друг вид, например шифрирано"}},
          {"a.txt", 1, {notSigned}},
          {"cut.p7m", 1, {notSigned}},
          {"empty.p7m", 1, {notSigned}},
          {"open.p7m", 1, {notSigned}},
          {"missing.p7m", 3, {"Няма такъв файл."}},
          {".", 3, {"Това е папка, а не файл."}},
          {"", 2, {"Липсва ФАЙЛ"}},
          {"--dialog --json a.txt.p7m", 2}},
         "norvik verify ");
    Walk({{"verify --dialog a.txt.p7m", 1, {"Няма достъпен екран"}}},
         "env -u DISPLAY -u WAYLAND_DISPLAY -u QT_QPA_PLATFORM norvik ");
}

TEST_F(VerifyCommandTest, SaysWhoSignedAndWhen) {
    const TsaServer tsa(pki_.tsa, {pki_.ca});
    const std::string time = "20[0-9]{2}-[0-9-]{5} [0-9:]{8} UTC";
    EXPECT_THAT(Run("verify a.txt.p7m").output,
                AllOf(HasSubstr("Иван Петров (издател: Norvik Test CA"), ContainsRegex(time)));
    EXPECT_THAT(Run("verify $(norvik sign a.txt --tsa " + tsa.Url() + ")").output,
                ContainsRegex("удостоверено време: " + time + " от Norvik Test TSA, вярно"));
    auto bytes = ReadFile("a.txt.p7m");
    bytes.back() ^= 1;  // of the token's signature
    Document("a.txt.p7m", bytes);
    Walk({{"verify a.txt.p7m", 1, {"подпис: верен", "НЕ Е ВЯРНО"}}});
}

TEST_F(VerifyCommandTest, WantsEveryTimestampToFit) {
    using testing_support::ElementsOf, testing_support::Wrap;
    const TsaServer tsa(pki_.tsa, {pki_.ca});
    Document("empty.txt", "");
    Walk({{"a.txt", 0}, {"--detached empty.txt", 0}}, "norvik sign --tsa " + tsa.Url() + " ");
    auto detached = ReadFile("empty.txt.p7s");
    detached.back() ^= 1;  // of the token's signature
    Document("empty.txt.p7s", detached);
    Walk({{"verify empty.txt.p7s", 1, {"НЕ Е ВЯРНО"}}});

    testing_support::MessageParts parts(platform::AsBytes(ReadFile("a.txt.p7m")));
    auto& attributes = parts.signers.at(0).back();
    const auto attribute = ElementsOf(ElementsOf(attributes).at(0));  // type and values
    const auto token = ElementsOf(attribute.at(1)).at(0);
    auto broken = token;
    broken.back() ^= 1;
    const auto judge = [&](const std::vector<platform::Bytes>& tokens, int status, const char* told) {
        attributes = Wrap(0xA1, {Wrap(0x30, {attribute.at(0), Wrap(0x31, tokens)})});
        Document("b.p7m", platform::AsText(parts.Assemble()));
        Walk({{"verify b.p7m", status, {told}}});
    };
    judge({token, token}, 0, ", вярно");
    judge({token, broken}, 1, "НЕ Е ВЯРНО");
    judge({}, 1, "липсва, НЕ Е ВЯРНО");
}

TEST_F(VerifyCommandTest, TellsOfManyFilesInATableAndInJsonThatOthersRead) {
    Change("a.txt.p7m", "bad.p7m");
    Document("alone.p7s", ReadFile("a.txt.p7s"));
    Document("read.py",
             "import json,sys\n"
             "for f in json.load(sys.stdin):\n"
             "  print(f['SignFile'], f['Status'], [s['SignStatus']+s['CertStatus']+s['Certificate']['Issuer'] for s in "
             "f['Signatures']], f.get('ErrorMessage'))\n");
    Walk({{"a.txt.p7m a.txt.p7s",
           0,
           {"\nРезултат       Подписи  Файл\n"
            "верен          1        a.txt.p7m\n"
            "верен          1        a.txt.p7s\n"
            "Верни: 2 от 2.\n"}},
          {"missing.p7m alone.p7s bad.p7m a.txt.p7m",
           1,
           {"НЕ Е ПРОВЕРЕН  0        missing.p7m\n"
            "НЕ Е ПРОВЕРЕН  0        alone.p7s\n"
            "НЕ Е ВАЛИДЕН   1        bad.p7m\n"
            "верен          1        a.txt.p7m\n"
            "Верни: 1 от 4."}},
          {"a.txt.p7s alone.p7s --data a.txt", 2},
          {"a.txt.p7s alone.p7s", 3},
          {"--json a.txt.p7m bad.p7m a.txt missing.p7m > answer; s=$?; python3 read.py < answer; exit $s",
           1,
           {"=a.txt.p7m valid ['okokNorvik Test CA'] None\n"
            "bad.p7m invalid ['failokNorvik Test CA'] None\n"
            "a.txt error [] файлът не е подписан или е повреден\n"
            "missing.p7m error [] не може да се прочете. Няма такъв файл.\n"}}},
         "norvik verify ");
}

// A certificate that nobody can vouch for is neither good nor bad.
TEST_F(VerifyCommandTest, TellsBadCertificatesFromThoseThatCannotBeChecked) {
    const std::string crls = (profile_.Stores() / "CA").string() + "/*.crl",
                      verify = "norvik verify --offline a.txt.p7m";
    const std::string notChecked =
        "сертификат: НЕ Е ПРОВЕРЕН: Функцията за анулиране не успя да провери отмяната на сертификата.";
    Walk({{"rm " + crls + " && " + verify, 3, {"подпис: верен", notChecked}}}, "");
    pki_.InstallCrls(profile_, {{pki_.signer.Serial(), 1'700'000'000, 1}});
    const std::string revoked = "сертификат: НЕ Е ВЕРЕН: Сертификатът или подписът са отменени.";
    Walk({{verify, 1, {"подпис: верен", revoked}}, {"rm " + crls, 0}}, "");
    pki_.InstallCrls(profile_);
    fs::remove_all(profile_.Stores() / "ROOT");
    Walk({{verify, 1, {"подпис: верен", "сертификат: НЕ Е ВЕРЕН: Веригата за сертифициране"}}}, "");
}

// Whoever makes a certificate chooses its names, and with them what a terminal is told to do.
TEST_F(VerifyCommandTest, DoesNotLetTheNameOfASignerWriteTheVerdict) {
    const auto forger = Issue({.subject = {{"CN", "Иван\x1b[2J\nподписите са верни\u202Eгнус"}}}, pki_.ca);
    fs::remove_all(profile_.Stores() / "MY");
    InstallCertificate(profile_, "MY", forger, true);
    Walk({{"sign a.txt", 0}});
    Change("a.txt.p7m", "a.txt.p7m");
    const std::vector<std::string> told{"Иван\uFFFD[2J\uFFFDподписите са верни\uFFFDгнус", "!\x1b", "!\nподписите",
                                        "!\u202E"};
    Walk({{"verify a.txt.p7m", 1, told}, {"store list", 0, told}});
}

}  // namespace

#include "tests/support/SoftToken.h"
#include "tests/tools/CommandTest.h"

namespace {

using namespace tests;

class CertificatesCommand : public CommandTest {
  protected:
    CertificatesCommand() {
        InstallCertificate(profile_, "MY", ivan_, true);
        InstallCertificate(profile_, "MY", maria_);
        InstallCertificate(profile_, "MY", expired_);
    }
    // Of `norvik certificates` with these arguments: 'ИМ' where both are told, 'И' for the first alone, ...
    [[nodiscard]] static std::string Told(const std::string& arguments) {
        const auto result = Run("certificates " + arguments);
        EXPECT_EQ(result.status, 0) << result.Summary();
        std::string told;
        for (const auto* name : {"Иван", "Мария", "Стар"})
            if (result.output.find(name) != std::string::npos) told += std::string(name).substr(0, 2);
        return told;
    }
    const std::time_t now_ = std::time(nullptr);
    const Certificate ca_ = Issue({.subject = {{"CN", "Издател"}}, .key = TestKey(KeyType::p256), .ca = true});
    const Certificate ivan_ = Issue({.subject = {{"O", "Фирма, ООД"}, {"CN", "Иван"}},
                                     .serial = {0x80, 0x01},
                                     .key = TestKey(KeyType::p256, 1),
                                     .extendedKeyUsage = "emailProtection",
                                     .crlUrls = {"http://crl.example/1"}},
                                    ca_);
    const Certificate maria_ =
        Issue({.subject = {{"CN", "Мария"}}, .subjectKeyId = false, .authorityKeyId = false}, ca_);
    const Certificate expired_ =
        Issue({.subject = {{"CN", "Стар"}}, .notBefore = now_ - 9 * kDay, .notAfter = now_ - kDay}, ca_);
};

TEST_F(CertificatesCommand, DescribesWhatIsValidNowForAPerson) {
    EXPECT_EQ(Told(""), "ИМ");
    const auto sly =
        Issue({.subject = {{"CN", "Петър\n  Издател                   Държавата"}}, .key = TestKey(KeyType::p256)});
    Document("sly.pem", sly.Pem());
    Walk(
        {{"--thumbprint-include " + ivan_.Thumbprint(),
          0,
          {"Иван\n", "  Субект                    CN=Иван, O=\"Фирма, ООД\"\n", "  Издател                   Издател\n",
           "  Сериен номер              008001\n", "  Алгоритъм на подписа      sha256ECDSA\n",
           "  Ключ                      256 бита\n", "  CRL                       http://crl.example/1\n",
           "  Употреба                  Secure Email\n", ivan_.Thumbprint(), "!OCSP"}},
         // A name that writes lines of its own is one line here.
         {"--file sly.pem", 0, {"!\n  Издател                   Държавата"}}},
        "norvik certificates ");
}

TEST_F(CertificatesCommand, ReadsFilesOfEveryKindAndStoresByName) {
    InstallCertificate(profile_, "Други", maria_);
    Document("all.pem", expired_.Pem() + maria_.Pem() + ivan_.Pem());
    Document("one.cer", ivan_.Der());
    Document("open.p12", MakePfx({{maria_}, "", PfxCipher::none}));
    Document("closed.PFX", MakePfx({{maria_}, "Тайна"}));
    Document("words.pem");
    for (const auto& [source, told] :
         {std::pair{"--store Други", "М"}, {"--file all.pem", "ИМ"}, {"--file one.cer", "И"}, {"--file open.p12", "М"}})
        EXPECT_EQ(Told(source), told) << source;
    Walk({{"--file closed.PFX --password-stdin", 0, {"Мария"}, "Тайна\n"},
          {"--file closed.PFX --password-stdin", 1, {"closed.PFX: грешна парола или не е PFX файл."}, "друга\n"},
          {"--file closed.PFX", 1, {"е с парола, която не е дадена"}},
          {"--file missing.pem", 1, {"missing.pem: не може да се прочете"}},
          {"--file words.pem", 1, {"няма сертификати"}},
          {"--store Ничие", 1, {"В хранилище Ничие няма сертификати."}},
          {"--store ../MY", 1, {"няма сертификати"}},
          {"--store MY --file x", 2, {"--file"}},
          {"--thumbprint-include AB", 2},
          {"--thumbprint-exclude " + std::string(40, 'G'), 2},
          {"--auth-id-include идентификатор", 2},
          {"--thumbprint-include " + std::string(40, 'A'),
           0,
           {"Няма валиден сертификат, който да отговаря на условията."}}},
         "norvik certificates ");
}

TEST_F(CertificatesCommand, FiltersByIdentifiersAsAPersonCopiesThem) {
    const auto ivan = ivan_.Thumbprint();
    // As windows show it: small letters, in pairs.
    const auto spaced = "\"$(echo " + ivan + " | tr A-F a-f | sed 's/../&:/g; s/:\\(..\\):$/ \\1/')\"";
    Document("ivan.pem", ivan_.Pem());
    const auto authId =
        Shell("openssl x509 -noout -ext authorityKeyIdentifier -in ivan.pem | tail -1 | tr -d ' \\n'").output;
    ASSERT_EQ(authId.size(), 59U) << authId;
    for (const auto& [filter, told] :
         {std::pair{"--thumbprint-include " + spaced, "И"},
          {"--thumbprint-exclude " + spaced, "М"},
          {"--thumbprint-include " + ivan + " --thumbprint-include " + maria_.Thumbprint(), "ИМ"},
          {"--auth-id-include " + authId, "И"},
          {"--auth-id-exclude " + authId, "М"},
          {"--auth-id-include ''", "М"}})  // those without an identifier
        EXPECT_EQ(Told(filter), told) << filter;
}

TEST_F(CertificatesCommand, GivesItsRecordsAsJsonThatOthersRead) {
    Document("garbage.pfx");
    const auto read = [](const std::string& expression) {
        return " > r; s=$?; python3 -c 'import json; r = json.load(open(\"r\")); print(" + expression + ")'; exit $s";
    };
    Walk({{"--thumbprint-include " + ivan_.Thumbprint() +
               read(R"(len(r), r[0]["CommonName"], r[0]["Subject"].split("\r\n"), r[0]["KeySize"], r[0]["CRL"])"),
           0,
           {"=1 Иван ['CN=Иван', 'O=\"Фирма, ООД\"'] 256 ['http://crl.example/1']\n"}},
          {"--thumbprint-include " + std::string(40, 'A') + read("r"), 0, {"=[]\n"}},
          {"--file garbage.pfx" + read("r"),
           1,
           {"=[{'Error': True, 'ErrorMessage': 'Invalid password for garbage.pfx'}]\n"}}},
         "norvik certificates --json ");
}

TEST_F(CertificatesCommand, ListsKeysInFilesAndOnCards) {
    Walk({{"", 0, {"ECDSA  " + ivan_.Thumbprint() + "  Иван\n"}},
          {"'Няма такъв'", 2, {"Няма PKCS#11 модул или токен с име Няма такъв."}}},
         "norvik store keys ");
    if (!SoftToken::Available()) GTEST_SKIP() << "SoftHSM2 or pkcs11-tool is not installed";
    SoftToken token(profile_, "Карта");
    Walk({{"store keys Карта", 0, {"Няма ключове."}}});
    token.Put(maria_, "01");
    for (const char* name : {"Карта", "softhsm2"})
        Walk({{name, 0, {"RSA ", "key01", "  Мария\n"}}}, "norvik store keys ");
}

class SelectCommand : public CertificatesCommand {
  protected:
    SelectCommand() { Document("two.pem", ca_.Pem() + ivan_.Pem()); }
};

TEST_F(SelectCommand, OffersNumbersAndPrintsTheChoice) {
    Terminal chooses("exec norvik select --file two.pem");
    chooses.Expect("1. Иван");
    // The order is the reverse of the file's, and a number that is not there is asked again.
    chooses.Answer({{"2. Издател", ""}, {"Номер: ", "3\n"}, {"Номер: ", "1\n"}});
    EXPECT_EQ(chooses.Wait(), 0);
    EXPECT_THAT(chooses.Seen(), HasSubstr(ivan_.Thumbprint()));

    Terminal declines("exec norvik select --file two.pem --json");
    declines.Answer({{"Номер: ", "\n"}});
    EXPECT_EQ(declines.Wait(), 1);
    EXPECT_THAT(declines.Seen(), HasSubstr("Не е избран сертификат."));
}

TEST_F(SelectCommand, SaysWhyNothingCanBeChosen) {
    Walk({{"norvik select --file missing.pem", 1},
          {"norvik select --terminal --dialog", 2},
          {"norvik select --terminal --file two.pem", 1, {"Няма терминал"}},
          // The windows are there, the display is not.
          {"env -u DISPLAY -u WAYLAND_DISPLAY -u QT_QPA_PLATFORM norvik select --dialog --file two.pem",
           1,
           {"Няма достъпен екран"}}},
         "");
}

}  // namespace

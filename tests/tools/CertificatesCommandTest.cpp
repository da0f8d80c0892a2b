#include "tests/support/SoftToken.h"
#include "tests/tools/CommandTest.h"

namespace {

using namespace tests;
using testing::AllOf;
using testing::HasSubstr;
using testing::Not;

class CertificatesCommand : public CommandTest {
  protected:
    CertificatesCommand() {
        InstallCertificate(profile_, "MY", ivan_, true);
        InstallCertificate(profile_, "MY", maria_);
        InstallCertificate(profile_, "MY", expired_);
    }
    [[nodiscard]] std::string AuthIdOf(const Certificate& certificate) const {
        const auto file = profile_.Write("one.pem", certificate.Pem());
        return RunProgram({"sh", "-c",
                           "openssl x509 -noout -ext authorityKeyIdentifier -in " + file.string() +
                               " | tail -1 | tr -d ' \\n'"})
            .output;
    }
    // Of `norvik certificates` with these arguments: 'ИМ' where both are told, 'И' for the first alone, ...
    [[nodiscard]] std::string Told(std::vector<std::string> arguments) const {
        arguments.insert(arguments.begin(), "certificates");
        const auto result = Run(arguments);
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
    const Certificate maria_ = Issue({.subject = {{"CN", "Мария"}},
                                      .key = TestKey(KeyType::rsa2048),
                                      .subjectKeyId = false,
                                      .authorityKeyId = false},
                                     ca_);
    const Certificate expired_ =
        Issue({.subject = {{"CN", "Стар"}}, .notBefore = now_ - 9 * kDay, .notAfter = now_ - kDay}, ca_);
};

TEST_F(CertificatesCommand, DescribesWhatIsValidNowForAPerson) {
    EXPECT_EQ(Told({}), "ИМ");
    const auto one = Run({"certificates", "--thumbprint-include", ivan_.Thumbprint()});
    for (const std::string line :
         {"Иван\n", "  Субект                    CN=Иван, O=\"Фирма, ООД\"\n", "  Издател                   Издател\n",
          "  Сериен номер              008001\n", "  Алгоритъм на подписа      sha256ECDSA\n",
          "  Ключ                      256 бита\n", "  CRL                       http://crl.example/1\n",
          "  Употреба                  Secure Email\n"})
        EXPECT_THAT(one.output, HasSubstr(line));
    EXPECT_THAT(one.output, AllOf(HasSubstr(ivan_.Thumbprint()), Not(HasSubstr("OCSP"))));
    // A name that writes lines of its own is one line here.
    const auto sly =
        Issue({.subject = {{"CN", "Петър\n  Издател                   Държавата"}}, .key = TestKey(KeyType::p256)});
    const auto told = Run({"certificates", "--file", Document("sly.pem", sly.Pem())}).output;
    EXPECT_THAT(told, Not(HasSubstr("\n  Издател                   Държавата")));
}

TEST_F(CertificatesCommand, ReadsFilesOfEveryKindAndStoresByName) {
    InstallCertificate(profile_, "Други", maria_);
    EXPECT_EQ(Told({"--store", "Други"}), "М");
    EXPECT_EQ(Told({"--file", Document("all.pem", expired_.Pem() + maria_.Pem() + ivan_.Pem())}), "ИМ");
    EXPECT_EQ(Told({"--file", Document("one.cer", platform::AsText(ivan_.Der()))}), "И");
    const auto open = Document("open.p12", platform::AsText(MakePfx({{maria_}, "", PfxCipher::none})));
    EXPECT_EQ(Told({"--file", open}), "М");
    const auto closed = Document("closed.PFX", platform::AsText(MakePfx({{maria_}, "Тайна"}))).string();
    const auto words = Document("words.pem").string();
    Walk({{{"--file", closed, "--password-stdin"}, 0, "Мария", "Тайна\n"},
          {{"--file", closed, "--password-stdin"}, 1, "closed.PFX: грешна парола или не е PFX файл.", "друга\n"},
          {{"--file", closed}, 1, "е с парола, която не е дадена"},
          {{"--file", "missing.pem"}, 1, "missing.pem: не може да се прочете"},
          {{"--file", words}, 1, "няма сертификати"},
          {{"--store", "Ничие"}, 1, "В хранилище Ничие няма сертификати."},
          {{"--store", "../MY"}, 1, "няма сертификати"},
          {{"--store", "MY", "--file", "x"}, 2, "--file"},
          {{"--thumbprint-include", "AB"}, 2},
          {{"--thumbprint-exclude", std::string(40, 'G')}, 2},
          {{"--auth-id-include", "идентификатор"}, 2},
          {{"--thumbprint-include", std::string(40, 'A')},
           0,
           "Няма валиден сертификат, който да отговаря на условията."}},
         {"certificates"});
}

TEST_F(CertificatesCommand, FiltersByIdentifiersAsAPersonCopiesThem) {
    auto spaced = ivan_.Thumbprint();
    for (std::size_t i = 38; i > 0; i -= 2)
        spaced.insert(i, i % 4 == 0 ? " " : ":");
    for (char& c : spaced)
        c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    EXPECT_EQ(Told({"--thumbprint-include", spaced}), "И");
    EXPECT_EQ(Told({"--thumbprint-exclude", spaced}), "М");
    EXPECT_EQ(Told({"--thumbprint-include", ivan_.Thumbprint(), "--thumbprint-include", maria_.Thumbprint()}), "ИМ");
    const auto authId = AuthIdOf(ivan_);
    ASSERT_EQ(authId.size(), 59U) << authId;
    EXPECT_EQ(Told({"--auth-id-include", authId}), "И");
    EXPECT_EQ(Told({"--auth-id-exclude", authId}), "М");
    EXPECT_EQ(Told({"--auth-id-include", ""}), "М") << "those without an identifier";
}

TEST_F(CertificatesCommand, GivesItsRecordsAsJsonThatOthersRead) {
    const auto read = [&](const std::vector<std::string>& arguments, const std::string& expression, int status) {
        auto line = arguments;
        line.insert(line.begin(), {"certificates", "--json"});
        const auto result = Run(line);
        EXPECT_EQ(result.status, status) << result.Summary();
        const auto python =
            RunProgram({"python3", "-c", "import json, sys; r = json.load(sys.stdin); print(" + expression + ")"},
                       {.input = result.output});
        EXPECT_EQ(python.status, 0) << python.errors;
        return python.output;
    };
    EXPECT_EQ(read({"--thumbprint-include", ivan_.Thumbprint()},
                   "len(r), r[0]['CommonName'], r[0]['Subject'].split('\\r\\n'), r[0]['KeySize'], r[0]['CRL']", 0),
              "1 Иван ['CN=Иван', 'O=\"Фирма, ООД\"'] 256 ['http://crl.example/1']\n");
    EXPECT_EQ(read({"--thumbprint-include", std::string(40, 'A')}, "r", 0), "[]\n");
    const auto garbage = Document("garbage.pfx").string();
    EXPECT_EQ(read({"--file", garbage}, "r", 1),
              "[{'Error': True, 'ErrorMessage': 'Invalid password for " + garbage + "'}]\n");
}

TEST_F(CertificatesCommand, ListsKeysInFilesAndOnCards) {
    Walk({{{"store", "keys"}, 0, "ECDSA  " + ivan_.Thumbprint() + "  Иван\n"},
          {{"store", "keys", "Няма такъв"}, 2, "Няма PKCS#11 модул или токен с име Няма такъв."}});
    if (!SoftToken::Available()) GTEST_SKIP() << "SoftHSM2 or pkcs11-tool is not installed";
    SoftToken token(profile_, "Карта");
    EXPECT_THAT(Run({"store", "keys", "Карта"}).errors, HasSubstr("Няма ключове."));
    token.Put(maria_, "01");
    for (const char* name : {"Карта", "softhsm2"}) {
        const auto result = Run({"store", "keys", name});
        EXPECT_EQ(result.status, 0) << result.Summary();
        EXPECT_THAT(result.output, AllOf(testing::StartsWith("RSA "), HasSubstr("key01"), HasSubstr("  Мария\n")));
    }
}

}  // namespace

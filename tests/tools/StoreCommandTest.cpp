#include "tests/support/SoftToken.h"
#include "tests/tools/CommandTest.h"

namespace {

using namespace tests;
using testing::Contains;
using testing::EndsWith;

class StoreCommandTest : public CommandTest {};

TEST_F(StoreCommandTest, ReadsEveryFormOfCertificate) {
    Document("one.cer", pki_.root.Der());
    Document("many.pem", pki_.ChainPem() + pki_.tsa.Pem());
    Document("list.crl", MakeCrl(pki_.ca));
    Document("chain.pem", pki_.ChainPem());
    const auto root = pki_.root.Thumbprint(), ca = pki_.ca.Thumbprint();
    Document("damaged.pem",
             pki_.root.Pem() + "-----BEGIN CERTIFICATE-----\nMIIB\n-----END CERTIFICATE-----\n" + pki_.ca.Pem());
    Walk({{"import damaged.pem --store Part", 1, {"част от файла", root, ca}},
          {"import one.cer --store ROOT", 0},
          {"list ROOT", 0, {root}},
          {"import many.pem --store Other", 0},
          {"list Other", 0, {ca, root, pki_.tsa.Thumbprint()}},
          {"list Other --json", 0, {"\"Subject\": \"Norvik Test CA\"", "\"PrivateKey\": false"}},
          {"import list.crl --store Lists", 0},
          {"remove " + ca + " --store Other", 0},
          {"remove " + ca + " --store Other", 1},
          {"remove some --store Other", 2},
          {"list Other", 0, {"!" + ca, root}},
          {"list ../ROOT", 2}},
         "norvik store ");
    Walk({{"openssl crl2pkcs7 -nocrl -certfile chain.pem -outform DER -out bundle.p7b", 0},
          {"norvik store import bundle.p7b --store Хора && norvik store list Хора", 0, {ca, root}}},
         "");
    EXPECT_EQ(FilesIn(profile_.Stores() / "Lists").size(), 1u);
}

// Issuer and serial number are words that anybody can write into a certificate.
TEST_F(StoreCommandTest, NobodysCertificatePushesAnotherOut) {
    const auto& owner = pki_.signer;
    const auto impostor =
        Issue({.subject = {{"CN", "Друг"}}, .serial = owner.Serial(), .signWith = TestKey(KeyType::p256)}, pki_.ca);
    ASSERT_EQ(X509_issuer_and_serial_cmp(owner.Native(), impostor.Native()), 0);
    Document("a.txt");
    Document("own.p12", MakePfx({{owner}}));
    Document("impostor.cer", impostor.Der());
    Walk({{"store import own.p12", 0},
          {"store import impostor.cer", 0},
          {"store list MY", 0, {owner.Thumbprint() + "  ключ", impostor.Thumbprint()}},
          {"sign a.txt --certificate " + owner.Thumbprint(), 0}});
}

TEST_F(StoreCommandTest, TellsWhenARemovedCertificateStaysOnTheMachine) {
    Document("root.cer", pki_.root.Der());
    profile_.Write("machine/stores/ROOT/root.cer", platform::AsText(pki_.root.Der()));
    const auto root = pki_.root.Thumbprint();
    Walk({{"(umask 0; norvik store import root.cer --store ROOT)", 0},
          {"find " + profile_.Stores().string() + " -perm /022 | grep .", 1},
          {"norvik store remove --store ROOT " + root, 0, {"остава в ROOT"}},
          {"norvik store list ROOT", 0, {root}},
          {"norvik store remove --store ROOT " + root, 1, {"не може да се премахне оттук"}}},
         "");
}

TEST_F(StoreCommandTest, TakesKeysOutOfPfxFilesOldAndNew) {
    const auto maria = Issue({.subject = {{"CN", "Мария"}}, .key = TestKey(KeyType::p256)}, pki_.ca);
    const Certificate ca(pki_.ca.Der());
    const auto signer = pki_.signer.Thumbprint(), mariasName = maria.Thumbprint();
    for (const std::string password : {"", "Тайна парола"}) {
        fs::remove_all(profile_.Stores());
        const auto cipher = password.empty() ? PfxCipher::none : PfxCipher::rc2_40;
        Document("keys.p12", MakePfx({{pki_.signer, maria, ca}, password, cipher}));
        Walk({{password.empty() ? "import keys.p12" : "import keys.p12 --password-stdin", 0, {}, password + "\r\n"},
              {"list MY", 0, {signer + "  ключ", mariasName + "  ключ", "!" + ca.Thumbprint()}},
              {"list CA", 0, {ca.Thumbprint()}}},
             "norvik store ");
        for (const auto& name : {signer, mariasName})
            EXPECT_EQ(fs::status(profile_.Stores() / "MY" / (name + ".key")).permissions(), fs::perms(0600));
    }
    Document("a.txt");
    Walk({{"sign a.txt --certificate " + mariasName, 0}, {"store remove " + mariasName, 0}});
    EXPECT_EQ(FilesIn(profile_.Stores() / "MY").size(), 2u);
    // A key file without a key in it is put right; another key under its name is not lost.
    const auto key = (profile_.Stores() / "MY" / (signer + ".key")).string();
    Walk({{": > " + key + "; norvik sign a.txt", 1},
          {"norvik store import keys.p12 --password-stdin && norvik sign a.txt --certificate " + signer,
           0,
           {},
           "Тайна парола\n"},
          {"openssl ecparam -genkey -noout -name prime256v1 -out " + key + "; cp " + key + " other.key", 0},
          {"norvik store import keys.p12 --password-stdin", 1, {"не може да се запише"}, "Тайна парола\n"},
          {"cmp " + key + " other.key", 0}},
         "");
}

TEST_F(StoreCommandTest, LeavesTheStoresAloneWhenAFileIsNotWhatItShouldBe) {
    const auto good = ReadFile(Document("good.p12", MakePfx({{pki_.signer}, "парола"})));
    Document("broken.p12", good.substr(0, good.size() / 2));
    Document("text.txt");
    Document("empty.cer", "");
    Document("one.cer", pki_.root.Der());
    Walk({{"good.p12 --password-stdin", 1, {"good.p12: грешна парола."}, "грешна\n"},
          {"good.p12 --password-stdin", 2, {"На стандартния вход няма нищо."}},
          {"good.p12", 2, {"--password-stdin"}},
          {"good.p12 --password-stdin --protect", 2, {"Не е въведена парола"}, "парола\n\n"},
          {"good.p12 --password-stdin --protect --store CA", 2, {"MY"}, "парола\nx\n"},
          {"one.cer --protect", 2, {"--protect"}},
          {"broken.p12 --password-stdin", 1, {"повреден"}, "парола\n"},
          {"text.txt", 1, {"не е сертификат"}},
          {"empty.cer", 1, {"не е сертификат"}},
          {"missing.cer", 1, {"Няма такъв файл."}},
          {".", 1, {"Това е папка, а не файл."}},
          {"good.p12 --store Other --password-stdin", 0, {"частният ключ не е внесен"}, "парола\n"}},
         "norvik store import ");
    EXPECT_THAT(FilesIn(profile_.Stores() / "MY"), IsEmpty());
    EXPECT_THAT(FilesIn(profile_.Stores() / "Other"), Not(Contains(EndsWith(".key"))));
}

TEST_F(StoreCommandTest, AsksForTheNewPassphraseOfAKeyAtEachRunThatUsesIt) {
    Document("a.txt", "first");
    Document("b.txt", "second");
    Document("good.p12", MakePfx({{pki_.signer}, "парола"}));
    InstallCertificate(profile_, "CA", pki_.ca);
    Walk({{"store import good.p12 --password-stdin --protect", 0, {}, "парола\nнова\n"}, {"sign a.txt", 1}});
    EXPECT_THAT(ReadFile(profile_.Stores() / "MY" / (pki_.signer.Thumbprint() + ".key")),
                HasSubstr("ENCRYPTED PRIVATE KEY"));
    Walk({{"sign a.txt b.txt --pin-stdin",
           1,
           {"a.txt: не е подписан. Грешна парола", "не са подписани: 1"},
           "друга\n"}});
    EXPECT_THAT(FilesIn(), ElementsAre("a.txt", "b.txt", "good.p12"));
    Walk({{"sign a.txt --pin-stdin", 0, {}, "нова\n"}});

    Terminal terminal("exec norvik sign a.txt b.txt");
    terminal.Answer({{"Парола за ключа на „Иван Петров“: ", "нова\n"}});
    EXPECT_EQ(terminal.Wait(), 0) << terminal.Seen();
    EXPECT_THAT(terminal.Seen(), Not(HasSubstr("нова")));
    EXPECT_EQ(AcceptedContent("b.txt.p7m"), "second");
}

}  // namespace

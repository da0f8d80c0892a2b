#include "tests/tools/CommandTest.h"

namespace {

namespace fs = std::filesystem;
using namespace tests;
using testing::AllOf;
using testing::Contains;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

class StoreCommandTest : public CommandTest {
  protected:
    std::string Pfx(const std::string& name, const PfxSpec& spec) const {
        return Document(name, platform::AsText(MakePfx(spec)));
    }
    [[nodiscard]] std::string Listed(const std::string& store) const { return Run({"store", "list", store}).output; }
};

TEST_F(StoreCommandTest, ReadsEveryFormOfCertificate) {
    Document("one.cer", platform::AsText(pki_.root.Der()));
    Document("many.pem", pki_.ChainPem() + pki_.tsa.Pem());
    Document("list.crl", platform::AsText(MakeCrl(pki_.ca)));
    const auto chain = profile_.Write("chain.pem", pki_.ChainPem());
    ASSERT_EQ(RunProgram({"openssl", "crl2pkcs7", "-nocrl", "-certfile", chain, "-outform", "DER", "-out",
                          Documents() / "bundle.p7b"})
                  .status,
              0);
    struct Case {
        const char *file, *store;
        std::vector<const Certificate*> found;
    };
    const Case cases[] = {{"one.cer", "ROOT", {&pki_.root}},
                          {"many.pem", "Other", {&pki_.ca, &pki_.root, &pki_.tsa}},
                          {"bundle.p7b", "Хора", {&pki_.ca, &pki_.root}},
                          {"list.crl", "Lists", {}}};
    for (const auto& [file, store, found] : cases) {
        const auto result = Run({"store", "import", file, "--store", store});
        EXPECT_EQ(result.status, 0) << result.Summary();
        for (const auto* certificate : found)
            EXPECT_THAT(Listed(store), HasSubstr(certificate->Thumbprint()));
    }
    EXPECT_EQ(FilesIn(profile_.Stores() / "Lists").size(), 1u);
    EXPECT_THAT(Run({"store", "list", "Other", "--json"}).output,
                AllOf(HasSubstr("\"Subject\": \"Norvik Test CA\""), HasSubstr("\"PrivateKey\": false")));

    Walk({{{"remove", pki_.ca.Thumbprint(), "--store", "Other"}, 0},
          {{"remove", pki_.ca.Thumbprint(), "--store", "Other"}, 1},
          {{"remove", "some", "--store", "Other"}, 2},
          {{"list", "../ROOT"}, 2}},
         {"store"});
    EXPECT_THAT(Listed("Other"), AllOf(Not(HasSubstr(pki_.ca.Thumbprint())), HasSubstr(pki_.root.Thumbprint())));
}

TEST_F(StoreCommandTest, TakesKeysOutOfPfxFilesOldAndNew) {
    const auto maria = Issue({.subject = {{"CN", "Мария"}}, .key = TestKey(KeyType::p256)}, pki_.ca);
    const Certificate ca(pki_.ca.Der());
    for (const auto cipher : {PfxCipher::none, PfxCipher::rc2_40}) {
        fs::remove_all(profile_.Stores());
        const std::string password = cipher == PfxCipher::none ? "" : "Тайна парола";
        Pfx("keys.p12", {{pki_.signer, maria, ca}, password, cipher});
        const auto result = cipher == PfxCipher::none
                                ? Run({"store", "import", "keys.p12"})
                                : Run({"store", "import", "keys.p12", "--password-stdin"}, password + "\r\n");
        EXPECT_EQ(result.status, 0) << result.Summary();
        EXPECT_THAT(Listed("MY"), AllOf(HasSubstr(pki_.signer.Thumbprint() + "  ключ"),
                                        HasSubstr(maria.Thumbprint() + "  ключ"), Not(HasSubstr(ca.Thumbprint()))));
        EXPECT_THAT(Listed("CA"), HasSubstr(ca.Thumbprint()));
        for (const auto& name : FilesIn(profile_.Stores() / "MY")) {
            if (!name.ends_with(".key")) continue;
            EXPECT_EQ(fs::status(profile_.Stores() / "MY" / name).permissions(), fs::perms(0600)) << name;
        }
    }
    Document("a.txt");
    EXPECT_EQ(Run({"sign", "a.txt", "--certificate", maria.Thumbprint()}).status, 0);
    EXPECT_EQ(Run({"store", "remove", maria.Thumbprint()}).status, 0);
    EXPECT_EQ(FilesIn(profile_.Stores() / "MY").size(), 2u);
}

TEST_F(StoreCommandTest, LeavesTheStoresAloneWhenAFileIsNotWhatItShouldBe) {
    Pfx("good.p12", {{pki_.signer}, "парола"});
    auto broken = ReadFile(Documents() / "good.p12");
    Document("broken.p12", broken.substr(0, broken.size() / 2));
    Document("text.txt");
    Document("empty.cer", "");
    Document("one.cer", platform::AsText(pki_.root.Der()));
    Walk({{{"good.p12", "--password-stdin"}, 1, "good.p12: грешна парола.", "грешна\n"},
          {{"good.p12", "--password-stdin"}, 2, "На стандартния вход няма нищо."},
          {{"good.p12"}, 2, "--password-stdin"},
          {{"good.p12", "--password-stdin", "--protect"}, 2, "Не е въведена парола", "парола\n\n"},
          {{"good.p12", "--password-stdin", "--protect", "--store", "CA"}, 2, "MY", "парола\nx\n"},
          {{"one.cer", "--protect"}, 2, "--protect"},
          {{"broken.p12", "--password-stdin"}, 1, "повреден", "парола\n"},
          {{"text.txt"}, 1, "не е сертификат"},
          {{"empty.cer"}, 1, "не е сертификат"},
          {{"missing.cer"}, 1, "Няма такъв файл."},
          {{"."}, 1, "Това е папка, а не файл."},
          {{"good.p12", "--store", "Other", "--password-stdin"}, 0, "частният ключ не е внесен", "парола\n"}},
         {"store", "import"});
    EXPECT_THAT(FilesIn(profile_.Stores() / "MY"), IsEmpty());
    EXPECT_THAT(FilesIn(profile_.Stores() / "Other"), Not(Contains(testing::EndsWith(".key"))));
}

TEST_F(StoreCommandTest, AsksForTheNewPassphraseOfAKeyAtEachRunThatUsesIt) {
    Document("a.txt", "first");
    Document("b.txt", "second");
    Pfx("good.p12", {{pki_.signer}, "парола"});
    InstallCertificate(profile_, "CA", pki_.ca);
    ASSERT_EQ(Run({"store", "import", "good.p12", "--password-stdin", "--protect"}, "парола\nнова\n").status, 0);
    const auto key = ReadFile(profile_.Stores() / "MY" / (pki_.signer.Thumbprint() + ".key"));
    EXPECT_THAT(key, HasSubstr("ENCRYPTED PRIVATE KEY"));

    EXPECT_EQ(Run({"sign", "a.txt"}).status, 1);
    const auto wrong = Run({"sign", "a.txt", "b.txt", "--pin-stdin"}, "друга\n");
    EXPECT_EQ(wrong.status, 1);
    EXPECT_THAT(wrong.errors, AllOf(HasSubstr("a.txt: не е подписан. Грешна парола"), HasSubstr("не са подписани: 1")));
    EXPECT_FALSE(fs::exists(Documents() / "a.txt.p7m"));
    EXPECT_EQ(Run({"sign", "a.txt", "--pin-stdin"}, "нова\n").status, 0);

    fs::current_path(Documents());
    Terminal terminal(Line({"sign", "a.txt", "b.txt"}));
    ASSERT_TRUE(terminal.Expect("Парола за ключа на „Иван Петров“: ")) << terminal.Seen();
    EXPECT_FALSE(terminal.ShowsKeys());
    terminal.Type(
        "новx\x7f"
        "а\n");  // a slip, taken back
    EXPECT_EQ(terminal.Wait(), 0) << terminal.Seen();
    EXPECT_THAT(terminal.Seen(), AllOf(Not(HasSubstr("нова")), HasSubstr("b.txt.p7m")));
    EXPECT_EQ(AcceptedContent("b.txt.p7m"), "second");
}

}  // namespace

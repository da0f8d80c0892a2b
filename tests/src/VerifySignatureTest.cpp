#include <ctime>
#include <fstream>

#include "src/signing/SignEngine.h"
#include "src/verification/SignedFile.h"
#include "tests/src/VerificationTest.h"
#include "tests/support/ChainWorld.h"
#include "tests/support/TsaServer.h"

namespace {

namespace fs = std::filesystem;
using namespace tests;
using testing::HasSubstr;
using verification::SignatureEntries;
using verification::SignatureEntry;

// By our own engine, as an application has it signed.
class VerifySignature : public VerificationTest {
  protected:
    VerifySignature() { InstallStandard(); }
    fs::path OwnSign(const std::string& content, bool detached, const settings::TsaRecord* authority = nullptr) {
        const auto file = Document("own.txt", content);
        std::u16string result;
        EXPECT_TRUE(signing::SignEngine(file.u16string(), platform::CertCreateCertificateContext(pki_.signer.Der()),
                                        authority, detached, result, u""))
            << Log();
        return result;
    }
};

void ExpectGood(const SignatureEntry& entry) {
    EXPECT_EQ(entry.signStatus, 0U) << platform::ToUtf8(entry.signMessage);
    EXPECT_EQ(entry.signMessage, u"Подписът е валиден");
    EXPECT_EQ(entry.certStatus, 0U) << platform::ToUtf8(entry.certMessage);
    EXPECT_EQ(entry.certMessage, u"Сертификатът е валиден.");
    EXPECT_EQ(entry.certTimeValidity, 0);
}

TEST_F(VerifySignature, TellsEverythingOfOurOwnSignatures) {
    profile_.Set("TZ", "Europe/Sofia");
    for (const bool detached : {false, true}) {
        const auto entries = Verify(OwnSign("words", detached));
        ASSERT_EQ(entries.size(), 1U);
        const auto& entry = entries[0];
        ExpectGood(entry);
        EXPECT_EQ(entry.certificate->GetSubjectName(), u"Иван Петров");
        EXPECT_EQ(entry.hashAlgorithm, u"SHA256");
        EXPECT_EQ(platform::ToUtf8(entry.digest),
                  Hex(platform::Digest(platform::HashAlgorithm::sha256, platform::AsBytes("words"))));
        EXPECT_EQ(entry.profile, u"CAdES-BASELINE-B");
        EXPECT_TRUE(entry.isCades);
        EXPECT_FALSE(entry.hasTimestamp);
        EXPECT_NEAR(static_cast<double>(entry.signingTime), static_cast<double>(std::time(nullptr)), 60);
        const std::time_t time = entry.signingTime;
        char local[32];
        std::strftime(local, sizeof(local), "%F %T", std::localtime(&time));
        EXPECT_EQ(platform::ToUtf8(entry.signingTimeText), local);
    }
}

TEST_F(VerifySignature, TakesTheTimeFromATokenWhoseSignatureIsGood) {
    const TsaServer tsa(pki_.tsa, {pki_.ca}, {.genTime = 1'772'360'100'123'000, .fractionDigits = 3});
    const settings::TsaRecord authority{platform::ToWide(tsa.Url()), u"TSA", u"", u""};
    for (const bool detached : {false, true}) {
        const auto file = OwnSign("words", detached, &authority);
        const auto entry = std::move(Verify(file).at(0));
        ExpectGood(entry);
        EXPECT_EQ(entry.profile, u"CAdES-BASELINE-T");
        EXPECT_TRUE(entry.hasTimestamp);
        EXPECT_EQ(entry.timestampIssuer, u"Norvik Test CA");
        EXPECT_EQ(entry.timestampTime, 1'772'360'100);
        EXPECT_THAT(platform::ToUtf8(entry.timestampSerial), testing::MatchesRegex("[0-9A-Fa-f]+"));
        EXPECT_EQ(entry.signingTime, 0) << "the token tells the time";
        EXPECT_EQ(entry.signingTimeText, u"");

        // The token's signature value stands last in the file.
        auto bytes = ReadFile(file);
        bytes.back() ^= 1;
        Overwrite(file, bytes);
        const auto broken = std::move(Verify(file).at(0));
        EXPECT_EQ(broken.signStatus, 0U) << "nobody signs the token";
        EXPECT_FALSE(broken.hasTimestamp);
        EXPECT_EQ(broken.profile, u"CAdES-BASELINE-T") << "told by what is there";
    }
    EXPECT_THAT(Log(), HasSubstr("\"timestampSignatureVerified\": false")) << "of the detached one";

    // Of a genTime without three digits of a second only the day is taken over.
    const TsaServer wholeSeconds(pki_.tsa, {pki_.ca}, {.genTime = 1'772'360'100'000'000});
    const settings::TsaRecord other{platform::ToWide(wholeSeconds.Url()), u"TSA", u"", u""};
    EXPECT_EQ(Verify(OwnSign("words", false, &other)).at(0).timestampTime, 1'772'360'100 / kDay * kDay);
}

TEST_F(VerifySignature, AcceptsWhatOtherProgramsSign) {
    Document("data", "Договор №1\r\n");
    const std::vector<std::vector<std::string>> kinds = {{},
                                                         {"-noattr"},
                                                         {"-keyid"},
                                                         {"-md", "sha1"},
                                                         {"-md", "sha512"},
                                                         {"-cades"},
                                                         {"-stream"},
                                                         {"-keyopt", "rsa_padding_mode:pss"}};
    const Certificate rsa = Issue({.subject = {{"CN", "Мария"}}, .key = TestKey(KeyType::rsa2048, 2)}, pki_.ca);
    for (auto options : kinds) {
        SCOPED_TRACE(testing::PrintToString(options));
        const bool streamed = options == std::vector<std::string>{"-stream"};
        const auto beside = OpenSslSign("data.p7s", "data", {{rsa}, {pki_.ca}, options});
        if (!streamed) ExpectGood(Verify(beside).at(0));
        options.emplace_back("-nodetach");
        const auto entries = Verify(OpenSslSign("data.p7m", "data", {{rsa}, {pki_.ca}, options}));
        ExpectGood(entries.at(0));
        EXPECT_EQ(entries[0].profile, options.front() == "-cades" ? u"CAdES-BASELINE-B" : u"CMS-NOT-ETSI");
        EXPECT_EQ(entries[0].signingTime == 0, options.front() == "-noattr");
    }
}

TEST_F(VerifySignature, GivesEachSignerAnEntryAndTheDigestOfTheFirst) {
    Document("data", "words");
    const auto stranger = Issue({.subject = {{"CN", "Непознат"}}, .key = TestKey(KeyType::p384)});
    const auto entries =
        Verify(OpenSslSign("both.p7m", "data", {{pki_.signer, stranger}, {pki_.ca}, {"-nodetach", "-md", "sha384"}}));
    ASSERT_EQ(entries.size(), 2U);
    const auto& trusted = entries[0].certificate->GetSubjectName() == u"Иван Петров" ? entries[0] : entries[1];
    const auto& other = &trusted == &entries[0] ? entries[1] : entries[0];
    ExpectGood(trusted);
    EXPECT_EQ(other.signStatus, 0U);
    EXPECT_EQ(other.certStatus, platform::CERT_E_UNTRUSTEDROOT);
    EXPECT_EQ(trusted.hashAlgorithm, u"SHA384");
    EXPECT_EQ(entries[0].digest, entries[1].digest);
}

// Nobody answers: the chain says so, and then the certificate's own addresses were asked, too, without an answer.
TEST_F(VerifySignature, TellsOfTheCertificateWhatTheChainSaysAndWhetherItNamesACrl) {
    auto spec = PersonSpec("Person", 3);
    const Certificate other = Issue(AuthoritySpec("Other CA", 4), pki_.root);
    const auto none = EntryOf(Issue(spec, other), {other});
    EXPECT_EQ(none.certStatus, platform::CRYPT_E_NO_REVOCATION_CHECK);
    EXPECT_TRUE(none.noCrlUrl);

    spec.crlUrls = {"http://127.0.0.1:9/none.crl"};
    const Certificate person = Issue(spec, other);
    InstallCertificate(profile_, "CA", other);
    const auto verdict = tessaly::CryptCertificate(person.Der()).BuildChain(tessaly::CryptStore(u"ROOT"));
    EXPECT_EQ(verdict.status, platform::CRYPT_E_REVOCATION_OFFLINE);
    const auto named = EntryOf(person, {other});
    EXPECT_EQ(named.certStatus, platform::CRYPT_E_NO_REVOCATION_CHECK);
    EXPECT_EQ(named.certMessage, u"Функцията за анулиране не успя да провери отмяната на сертификата.");
    EXPECT_FALSE(named.noCrlUrl);

    for (const auto& [from, to, validity] : {std::tuple{-9, -1, 1}, std::tuple{1, 9, -1}}) {  // days from now
        spec.notBefore = std::time(nullptr) + from * kDay;
        spec.notAfter = std::time(nullptr) + to * kDay;
        const auto entry = EntryOf(Issue(spec, pki_.ca), {pki_.ca});
        EXPECT_EQ(entry.certStatus, platform::CERT_E_EXPIRED);
        EXPECT_EQ(entry.certMessage, tessaly::StatusText(platform::CERT_E_EXPIRED));
        EXPECT_EQ(entry.certTimeValidity, validity);
        EXPECT_EQ(entry.signStatus, 0U);
    }
}

TEST_F(VerifySignature, LooksForTheDataUnderTheNameLessFourCharacters) {
    const auto signature = ReadFile(Detached());
    Document("a.txt", "words");
    Document("x.sign", "words");
    Document("named", "words");
    EXPECT_EQ(Verify(Document("a.txt.p7s", signature)).size(), 1U);
    EXPECT_EQ(Verify(Document("x.signABCD", signature)).size(), 1U) << "whatever the extension is";
    EXPECT_EQ(Verify(Document("else.P7S", signature), Documents() / "named").size(), 1U);
    EXPECT_EQ(Verify(Document("a.txt.p7s", signature), fs::path()).size(), 1U) << "an empty name names nothing";
    EXPECT_EQ(Refusal(Document("b.txt.p7s", signature)), "File does not exist!!!");
    Document("a.txt", "other words");
    EXPECT_EQ(Verify(Document("a.txt.p7s", signature)).at(0).signStatus, platform::CRYPT_E_HASH_VALUE);
    Document("a.txt", "");
    EXPECT_EQ(Verify(Document("a.txt.p7s", signature)).at(0).signStatus, platform::CRYPT_E_HASH_VALUE);
}

TEST_F(VerifySignature, RefusesWhatIsNoSignedFile) {
    const auto good = ReadFile(Attached());
    fs::create_directory(Documents() / "folder.p7m");
    const auto stranger = Issue({.subject = {{"CN", "Никой"}}, .key = TestKey(KeyType::p256, 5)});
    Document("data", "words");
    const auto noCertificate = OpenSslSign("c.p7m", "data", {{stranger}, {}, {"-nodetach", "-nocerts"}});
    const auto envelope = Documents() / "e.p7m";
    ASSERT_EQ(RunProgram({"openssl", "cms", "-encrypt", "-outform", "DER", "-in", Documents() / "data", "-out",
                          envelope, profile_.Write("r.pem", Issue({}).Pem())})
                  .status,
              0);
    const auto crate = Documents() / "certificates.p7m";
    ASSERT_EQ(RunProgram({"openssl", "crl2pkcs7", "-nocrl", "-certfile", profile_.Write("r.pem", Issue({}).Pem()),
                          "-outform", "DER", "-out", crate})
                  .status,
              0);
    const std::pair<fs::path, const char*> cases[] = {{Documents() / "missing.p7m", "File does not exist!!!"},
                                                      {Document("noextension", good), "File without extension!!!"},
                                                      {Documents() / "folder.p7m", "Is a directory"},
                                                      {Document("empty.p7m", ""), "Error 0x80093102"},
                                                      {Document("text.p7m", "words"), "Error 0x8009310b"},
                                                      {Document("cut.p7m", good.substr(0, 700)), "Error 0x800"},
                                                      {Document("more.p7m", good + "more"), "Error 0x80092002"},
                                                      {envelope, "Error 0x8009200a"},
                                                      {crate, "File does not exist!!!"},
                                                      {noCertificate, "Error 0x8009100e"}};
    for (const auto& [file, told] : cases)
        EXPECT_THAT(Refusal(file), HasSubstr(told)) << file;
    const auto detached = Detached();
    fs::create_directory(Documents() / "a.txt");
    EXPECT_THAT(Refusal(detached), HasSubstr("Is a directory"));
}

// Signers before one without certificate stay judged.
TEST_F(VerifySignature, LeavesTheEntriesThatWereMade) {
    Document("data", "words");
    const auto stranger = Issue({.subject = {{"CN", "Никой"}}, .key = TestKey(KeyType::p384)});
    const auto first = OpenSslSign("one.p7m", "data", {{pki_.signer}, {}, {"-nodetach"}});
    const auto both = Documents() / "both.p7m";
    const auto key = profile_.Write("second.key", stranger.KeyPem()), pem = profile_.Write("2.pem", stranger.Pem());
    ASSERT_EQ(RunProgram({"openssl", "cms", "-resign", "-inform", "DER", "-in", first, "-signer", pem, "-inkey", key,
                          "-nocerts", "-outform", "DER", "-nodetach", "-out", both})
                  .status,
              0);
    SignatureEntries entries;
    EXPECT_THROW(verification::VerifySignatureFile(both, {}, entries), std::runtime_error);
    for (const auto& entry : entries)
        ExpectGood(entry);
    EXPECT_LE(entries.size(), 1U);
}

TEST_F(VerifySignature, ASignatureMovedToOtherContentOrWithAnotherValueIsBad) {
    const auto one = ReadFile(Attached("one.p7m", "words")), two = ReadFile(Attached("two.p7m", "other"));
    auto moved = one;
    moved.replace(moved.find("words"), 5, "other");
    const auto content = std::move(Verify(Document("moved.p7m", moved)).at(0));
    EXPECT_EQ(content.signStatus, platform::CRYPT_E_HASH_VALUE);
    EXPECT_EQ(content.signMessage, tessaly::StatusText(content.signStatus));
    EXPECT_EQ(content.certStatus, 0U) << "the certificate is judged all the same";
    moved = two;
    moved.back() ^= 1;  // of the signature's value
    EXPECT_EQ(Verify(Document("moved.p7m", moved)).at(0).signStatus, platform::TRUST_E_BAD_DIGEST);
}

// The file grows, shrinks or is written anew after it was opened.
TEST_F(VerifySignature, AFileThatChangesUnderneathIsNotCalledGood) {
    const std::string content(3 << 20, 'x');
    const auto file = Attached("big.p7m", content);
    const auto verifyAfter = [&](const std::function<void()>& change) {
        SignatureEntries entries;
        const auto source = verification::OpenSource(file);
        change();
        try {
            verification::VerifyMessage({.message = source, .openData = [] { return nullptr; }}, entries);
        } catch (const std::runtime_error&) {
            return false;
        }
        return entries.at(0).signStatus == 0;
    };
    EXPECT_TRUE(verifyAfter([] {}));
    EXPECT_FALSE(verifyAfter([&] { std::fstream(file).seekp(1'000'000).put('y'); }));
    Attached("big.p7m", content);
    EXPECT_FALSE(verifyAfter([&] { fs::resize_file(file, 1'000'000); }));
    Attached("big.p7m", content);
    EXPECT_TRUE(verifyAfter([&] { fs::remove(file); })) << "what was opened is still whole";
}

}  // namespace

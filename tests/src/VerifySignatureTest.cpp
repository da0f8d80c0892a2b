#include <ctime>
#include <fstream>

#include "src/ProgressDlg.h"
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

class VerifySignature : public VerificationTest {
  protected:
    VerifySignature() { InstallStandard(); }
    // By our own engine, as an application has it signed.
    fs::path OwnSign(bool detached, const TsaServer* tsa = nullptr) {
        const auto file = Document("own.txt", "words");
        const settings::TsaRecord authority{tsa != nullptr ? platform::ToWide(tsa->Url()) : u"", u"", u"", u""};
        std::u16string result;
        EXPECT_TRUE(signing::SignEngine(file.u16string(), ContextOf(pki_.signer), tsa != nullptr ? &authority : nullptr,
                                        detached, result, u""))
            << Log();
        return result;
    }
    // What is thrown; "(verified)" if nothing is.
    static std::string Refusal(const fs::path& file) try {
        Verify(file);
        return "(verified)";
    } catch (const std::runtime_error& error) {
        return error.what();
    }
};

// Statuses, their texts, and what the signature is.
std::string Told(const SignatureEntry& entry) {
    std::ostringstream told;
    told << std::hex << entry.signStatus << '|' << platform::ToUtf8(entry.signMessage) << '|' << entry.certStatus << '|'
         << platform::ToUtf8(entry.certMessage) << '|' << entry.certTimeValidity << '|'
         << platform::ToUtf8(entry.hashAlgorithm) << '|' << platform::ToUtf8(entry.profile) << '|'
         << (entry.isCades ? "CAdES " : "") << (entry.hasTimestamp ? "timestamp" : "");
    return told.str();
}
const std::string kGood = "0|Подписът е валиден|0|Сертификатът е валиден.|0|";

TEST_F(VerifySignature, TellsEverythingOfOurOwnSignatures) {
    profile_.Set("TZ", "Europe/Sofia");
    for (const bool detached : {false, true}) {
        const auto entry = EntryOf(OwnSign(detached));
        EXPECT_EQ(Told(entry), kGood + "SHA256|CAdES-BASELINE-B|CAdES ");
        EXPECT_EQ(entry.certificate->GetSubjectName(), u"Иван Петров");
        EXPECT_EQ(platform::ToUtf8(entry.digest),
                  Hex(platform::Digest(platform::HashAlgorithm::sha256, platform::AsBytes("words"))));
        const std::time_t time = entry.signingTime;
        EXPECT_LE(std::abs(time - std::time(nullptr)), 60);
        char local[32];
        std::strftime(local, sizeof(local), "%F %T", std::localtime(&time));
        EXPECT_EQ(platform::ToUtf8(entry.signingTimeText), local);
    }
}

TEST_F(VerifySignature, TakesTheTimeFromATokenWhoseSignatureIsGood) {
    TsaServer tsa(pki_.tsa, {pki_.ca}, {.genTime = 1'772'360'100'123'000, .fractionDigits = 3});
    for (const bool detached : {false, true}) {
        const auto file = OwnSign(detached, &tsa);
        const auto entry = EntryOf(file);
        EXPECT_EQ(Told(entry), kGood + "SHA256|CAdES-BASELINE-T|CAdES timestamp");
        EXPECT_EQ(entry.timestampIssuer, u"Norvik Test CA");
        EXPECT_EQ(entry.timestampTime, 1'772'360'100);
        EXPECT_THAT(platform::ToUtf8(entry.timestampSerial), testing::MatchesRegex("[0-9A-Fa-f]+"));
        EXPECT_TRUE(entry.signingTime == 0 && entry.signingTimeText.empty()) << "the token tells the time";
        Change(file, fs::file_size(file) - 1);  // the token's signature value stands last, and nobody signs it
        EXPECT_EQ(Told(EntryOf(file)), kGood + "SHA256|CAdES-BASELINE-T|CAdES ");
    }
    EXPECT_THAT(Log(), HasSubstr("\"timestampSignatureVerified\": false")) << "of the detached one";

    // Of a genTime without three digits of a second only the day is taken over.
    tsa.Behave({.genTime = 1'772'360'100'000'000});
    EXPECT_EQ(EntryOf(OwnSign(false, &tsa)).timestampTime, 1'772'360'100 / kDay * kDay);
}

TEST_F(VerifySignature, AcceptsWhatOtherProgramsSign) {
    const Certificate rsa = Issue({.subject = {{"CN", "Мария"}}, .key = TestKey(KeyType::rsa2048, 2)}, pki_.ca);
    for (const std::string options :
         {"", "-noattr", "-keyid", "-md sha1", "-md sha512", "-cades", "-stream", "-keyopt rsa_padding_mode:pss"}) {
        SCOPED_TRACE(options);
        for (const std::string form : {" -nodetach", ""}) {
            if (options + form == "-stream") continue;
            const auto file = OpenSslSign("a.p7s", {{rsa}, {pki_.ca}, options + form}, "Договор №1\r\n");
            const auto entry = EntryOf(file, documents_ / "data");
            EXPECT_THAT(Told(entry), testing::StartsWith(kGood));
            EXPECT_EQ(entry.profile, options == "-cades" ? u"CAdES-BASELINE-B" : u"CMS-NOT-ETSI");
            EXPECT_EQ(entry.signingTime == 0, options == "-noattr");
        }
    }
}

TEST_F(VerifySignature, GivesEachSignerAnEntryAndTheDigestOfTheFirst) {
    const auto stranger = Issue({.subject = {{"CN", "Непознат"}}, .key = TestKey(KeyType::p384)});
    const auto entries = Verify(OpenSslSign("both.p7m", {{pki_.signer, stranger}, {pki_.ca}, "-nodetach -md sha384"}));
    ASSERT_EQ(entries.size(), 2U);
    const auto& trusted = entries[0].certificate->GetSubjectName() == u"Иван Петров" ? entries[0] : entries[1];
    const auto& other = &trusted == &entries[0] ? entries[1] : entries[0];
    EXPECT_EQ(Told(trusted), kGood + "SHA384|CMS-NOT-ETSI|");
    EXPECT_EQ(other.signStatus, 0U);
    EXPECT_EQ(other.certStatus, platform::CERT_E_UNTRUSTEDROOT);
    EXPECT_EQ(entries[0].digest, entries[1].digest);
}

// Nobody answers: the chain says so, and then the certificate's own addresses were asked, too, without an answer.
TEST_F(VerifySignature, TellsOfTheCertificateWhatTheChainSaysAndWhetherItNamesACrl) {
    const Certificate other = Issue(AuthoritySpec("Other CA", 4), pki_.root);
    InstallCertificate(profile_, "CA", other);
    auto spec = PersonSpec("Person", 3);
    for (const bool named : {false, true}) {
        if (named) spec.crlUrls = {"http://127.0.0.1:9/none.crl"};
        const Certificate person = Issue(spec, other);
        const auto verdict = tessaly::CryptCertificate(person.Der()).BuildChain(tessaly::CryptStore(u"ROOT"));
        EXPECT_EQ(verdict.status, named ? platform::CRYPT_E_REVOCATION_OFFLINE : platform::CRYPT_E_NO_REVOCATION_CHECK);
        const auto entry = EntryOf(OpenSslSign("a.p7m", {{person}, {other}}));
        EXPECT_THAT(Told(entry),
                    HasSubstr("|80092012|Функцията за анулиране не успя да провери отмяната на сертификата.|"));
        EXPECT_EQ(entry.noCrlUrl, !named);
    }
    for (const auto& [from, to, validity] : {std::tuple{-9, -1, 1}, std::tuple{1, 9, -1}}) {  // days from now
        spec.notBefore = std::time(nullptr) + from * kDay;
        spec.notAfter = std::time(nullptr) + to * kDay;
        const auto entry = EntryOf(OpenSslSign("a.p7m", {{Issue(spec, pki_.ca)}, {pki_.ca}}));
        EXPECT_EQ(entry.signStatus, 0U);
        EXPECT_EQ(entry.certStatus, platform::CERT_E_EXPIRED);
        EXPECT_EQ(entry.certMessage, tessaly::StatusText(platform::CERT_E_EXPIRED));
        EXPECT_EQ(entry.certTimeValidity, validity);
    }
}

TEST_F(VerifySignature, LooksForTheDataUnderTheNameLessFourCharacters) {
    const auto signature = ReadFile(Detached());
    for (const auto* name : {"a.txt", "x.sign", "named"})
        Document(name, "words");
    const auto statusOf = [&](const char* name, const std::optional<fs::path>& data = {}) {
        return EntryOf(Document(name, signature), data).signStatus;
    };
    EXPECT_EQ(statusOf("a.txt.p7s"), 0U);
    EXPECT_EQ(statusOf("x.signABCD"), 0U) << "whatever the extension is";
    EXPECT_EQ(statusOf("else.P7S", documents_ / "named"), 0U);
    EXPECT_EQ(statusOf("a.txt.p7s", fs::path()), 0U) << "an empty name names nothing";
    EXPECT_EQ(Refusal(Document("b.txt.p7s", signature)), "File does not exist!!!");
    for (const auto* content : {"other words", ""}) {
        Document("a.txt", content);
        EXPECT_EQ(statusOf("a.txt.p7s"), platform::CRYPT_E_HASH_VALUE);
    }
}

TEST_F(VerifySignature, RefusesWhatIsNoSignedFileAndKeepsTheEntriesThatWereMade) {
    const auto good = ReadFile(Attached());
    const auto envelope = documents_ / "e.p7m", crate = documents_ / "certificates.p7m", both = documents_ / "both.p7m";
    const auto pem = profile_.Write("r.pem", Issue({}).Pem());
    OpenSsl({"cms", "-encrypt", "-outform", "DER", "-in", documents_ / "data", "-out", envelope, pem});
    OpenSsl({"crl2pkcs7", "-nocrl", "-certfile", pem, "-outform", "DER", "-out", crate});
    const auto stranger = Issue({});  // its longer signature stands second
    const auto none = OpenSslSign("c.p7m", {{stranger}, {}, "-nodetach -nocerts"});
    OpenSsl({"cms", "-resign", "-inform", "DER", "-in", Attached(), "-signer", profile_.Write("2.pem", stranger.Pem()),
             "-inkey", profile_.Write("2.key", stranger.KeyPem()), "-nocerts", "-outform", "DER", "-nodetach", "-out",
             both});
    for (const auto* folder : {"folder.p7m", "d.txt"})
        fs::create_directory(documents_ / folder);
    using Case = std::pair<fs::path, const char*>;
    for (const auto& [file, told] :
         {Case{documents_ / "missing.p7m", "File does not exist!!!"}, Case{crate, "File does not exist!!!"},
          Case{Document("noextension", good), "File without extension!!!"},
          Case{documents_ / "folder.p7m", "Is a directory"}, Case{Detached("d.txt.p7s"), "Is a directory"},
          Case{Document("empty.p7m", ""), "Error 0x80093102"}, Case{Document("text.p7m", "words"), "Error 0x8009310b"},
          Case{Document("cut.p7m", good.substr(0, 700)), "Error 0x800"},
          Case{Document("more.p7m", good + "more"), "Error 0x80092002"}, Case{envelope, "Error 0x8009200a"},
          Case{none, "Error 0x8009100e"}, Case{both, "Error 0x8009100e"}})
        EXPECT_THAT(Refusal(file), HasSubstr(told)) << file;
    SignatureEntries entries;
    EXPECT_THROW(verification::VerifySignatureFile(both, {}, entries), std::runtime_error);
    ASSERT_EQ(entries.size(), 1U) << "the signer before the one without a certificate";
    EXPECT_THAT(Told(entries[0]), testing::StartsWith(kGood));
}

TEST_F(VerifySignature, ASignatureMovedToOtherContentOrWithAnotherValueIsBad) {
    const auto file = Attached();
    auto moved = ReadFile(file);
    Change(file, moved.size() - 1);  // of the signature's value
    EXPECT_EQ(EntryOf(file).signStatus, platform::TRUST_E_BAD_DIGEST);
    moved.replace(moved.find("words"), 5, "other");
    const auto entry = EntryOf(Document("moved.p7m", moved));
    EXPECT_EQ(entry.signStatus, platform::CRYPT_E_HASH_VALUE);
    EXPECT_EQ(entry.signMessage, tessaly::StatusText(entry.signStatus));
    EXPECT_EQ(entry.certStatus, 0U) << "the certificate is judged all the same";
}

// The file grows, shrinks or is written anew after it was opened.
TEST_F(VerifySignature, AFileThatChangesUnderneathIsNotCalledGood) {
    const auto isGoodAfter = [&](const std::function<void(const fs::path&)>& change) {
        const auto file = Attached("big.p7m", std::string(3 << 20, 'x'));
        SignatureEntries entries;
        const auto source = verification::OpenSource(file);
        change(file);
        try {
            verification::VerifyMessage({.message = source, .openData = [] { return nullptr; }}, entries);
        } catch (const std::runtime_error&) {
            return false;
        }
        return entries.at(0).signStatus == 0;
    };
    EXPECT_TRUE(isGoodAfter([](const auto&) {}));
    EXPECT_FALSE(isGoodAfter([](const auto& file) { std::fstream(file).seekp(1'000'000).put('y'); }));
    EXPECT_FALSE(isGoodAfter([](const auto& file) { fs::resize_file(file, 1'000'000); }));
    EXPECT_TRUE(isGoodAfter([](const auto& file) { fs::remove(file); })) << "what was opened is still whole";
}

TEST_F(VerifySignature, TheKindOfAMessageIsToldOfBytesAndFilesAndThePersonLearnsWhichCannotBeRead) {
    const auto text = platform::CopyOf(platform::AsBytes("words"));
    const auto attached = Attached(), detached = Detached();
    const auto bytesOf = [](const fs::path& file) { return platform::CopyOf(platform::AsBytes(ReadFile(file))); };
    EXPECT_EQ(GetMessageType(bytesOf(attached), 0), platform::CMSG_SIGNED);
    EXPECT_EQ(GetMessageType(bytesOf(detached), platform::CMSG_DETACHED_FLAG, text), platform::CMSG_SIGNED);
    EXPECT_EQ(GetMessageType(text, 0), 0U);

    auto& person = CNorvikApp::Current()->Interface();
    EXPECT_EQ(GetFileMessageType(attached, person), platform::CMSG_SIGNED);
    EXPECT_EQ(GetFileMessageType(documents_ / "data", person), 0U);
    EXPECT_TRUE(script_.shown.empty()) << "what is no message is noted in the log alone";
    const auto missing = documents_ / "липсва.p7m";
    EXPECT_EQ(GetFileMessageType(missing, person), 0U);
    EXPECT_THAT(script_.Texts(), testing::ElementsAre("Следният файл не може да бъде отворен:\n" + missing.native()));
    EXPECT_EQ(script_.shown[0].title, u"Грешка");
    EXPECT_THAT(Log(), testing::AllOf(HasSubstr("Failed to open: "), HasSubstr("0x8009310b")));
}

}  // namespace

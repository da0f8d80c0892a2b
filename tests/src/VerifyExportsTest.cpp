// The exports on signed files as an application calls them.

#include "tests/src/Exports.h"
#include "tests/src/VerificationTest.h"

namespace {

namespace fs = std::filesystem;
using namespace tests;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::MatchesRegex;
using testing::StartsWith;

constexpr char kMissing[] = "File does not exist!!!";

class VerifyExports : public VerificationTest {
  protected:
    VerifyExports() {
        heard.clear();
        script_.results = [&](const ui::ResultsQuestion& question) {
            EXPECT_FALSE(question.entries.empty());
            shown_.emplace_back(question.signFile, question.dataFile);
            return ui::ResultsAction::none;
        };
        InstallStandard();
    }
    // The answer to a request, and whether the call said true.
    std::string Json(const std::string& request, bool expected = true) {
        heard.clear();
        const bool done = EXPORT(NorvikSignInfoJson)(platform::ToWide(request).c_str(), HearJson, kContext);
        EXPECT_EQ(done, expected) << request;
        EXPECT_EQ(heard.size(), 1U);
        return heard.empty() ? "" : heard[0];
    }
    static std::string RequestFor(const fs::path& file, const fs::path& data = {}) {
        return R"({"SignFile":")" + file.string() + "\"" +
               (data.empty() ? "" : R"(,"DataFile":")" + data.string() + "\"") + "}";
    }
    // The members of the first object in their order, a line each, as another reader of JSON takes them; of a
    // certificate its thumbprint.
    static std::string MembersOf(const std::string& json) {
        constexpr char program[] = R"(
import json, sys
for key, value in json.load(sys.stdin)[0].items():
    print(key + '=' + (value['Thumbprint'] if isinstance(value, dict) else str(value))))";
        return RunProgram({"python3", "-c", program}, {.input = json}).output;
    }
    struct Extracted {
        int result = 0;
        std::string path, text;
    };
    Extracted Extract(const fs::path& file, int flag = 1) {
        std::u16string path(4096, u'\0'), text(4096, u'\0');
        const int result = EXPORT(NorvikExtractFile)(file.u16string().c_str(), path.data(), text.data(), flag);
        return {result, platform::ToUtf8(path.c_str()), platform::ToUtf8(text.c_str())};
    }
    int Show(const fs::path& file, int flag = 0) {
        return EXPORT(NorvikDecryptVerifyFile)(file.u16string().c_str(), flag);
    }
    fs::path Timeless() const { return OpenSslSign("t.p7m", {{pki_.signer}, {pki_.ca}, "-nodetach -noattr"}); }

    const LoadedLibrary library_{script_};
    std::vector<std::pair<fs::path, fs::path>> shown_;  // signed file and data of each window
};

TEST_F(VerifyExports, ReportSignatureAndCertificateApartMemberByMember) {
    const auto file = Attached();
    const auto json = Json(RequestFor(file));
    EXPECT_THAT(json, StartsWith("[\r\n  {\r\n    \"SignStatus\": \"ok\","));
    const auto digest = [](const char* text) {
        return "Digest=" + Hex(platform::Digest(platform::HashAlgorithm::sha256, platform::AsBytes(text))) + "\n";
    };
    const auto signer =
        "Certificate=" + pki_.signer.Thumbprint() + "\nHashAlgorithm=SHA256\nCADES=False\nTimestamp=False\n";
    const std::string time = "SigningTime=20[0-9-]{8}T[0-9:]{8}[+-][0-9:]{5}\n";
    EXPECT_THAT(MembersOf(json), MatchesRegex("SignStatus=ok\nCertStatus=ok\n" + signer + time + digest("words")));

    Change(file, ReadFile(file).find("words"));
    EXPECT_THAT(MembersOf(Json(RequestFor(file))),
                MatchesRegex("Error=True\nErrorMessage=Хеш стойността не е правилна\\.\nSignStatus=fail\n"
                             "SignStatusMessage=Хеш стойността не е правилна\\.\nCertStatus=ok\n" +
                             signer + time + digest("vords")));

    InstallCrl(profile_, "CA", MakeCrl(pki_.ca, {.revoked = {{pki_.signer.Serial(), 1'700'000'000}}, .number = 2}));
    EXPECT_EQ(MembersOf(Json(RequestFor(Timeless()))),
              "SignStatus=ok\nCertStatus=fail\nCertStatusMessage=Сертификатът или подписът са отменени.\n" + signer +
                  digest("words"))
        << "a good signature is no error, and one that tells no time has no key for it";
}

TEST_F(VerifyExports, TakeTheDataOfADetachedSignatureFromTheRequestAndAnswerFailuresAsOneObject) {
    const auto file = Detached();
    EXPECT_EQ(Json(RequestFor(file), false),
              "[\r\n  {\r\n    \"Error\": true,\r\n    \"ErrorMessage\": \"File does not exist!!!\"\r\n  }\r\n]\r\n");
    EXPECT_THAT(MembersOf(Json(RequestFor(file, documents_ / "data"))), StartsWith("SignStatus=ok"));
    Document("a.txt", "words");
    EXPECT_THAT(MembersOf(Json(RequestFor(file))), StartsWith("SignStatus=ok"));
    EXPECT_THAT(Json(RequestFor(Document("x.p7m", "no signature")), false), HasSubstr("Error 0x"));
    EXPECT_THAT(MembersOf(Json(R"({"SignFile":"/tmp/\ud800.p7m"})", false)),
                MatchesRegex("Error=True\nErrorMessage=.*\n"));

    const std::string invalid = R"([{"Error":true,"ErrorMessage":"Invalid input parameters"}])";
    for (const auto* request : {"", " \t\v\f\r\n", "{}", "[]", "x", R"({"DataFile":"x"})"})
        EXPECT_EQ(Json(request, false), invalid) << request;
    const auto call = EXPORT(NorvikSignInfoJson);
    EXPECT_FALSE(call(nullptr, HearJson, kContext));
    EXPECT_FALSE(call(platform::ToWide(RequestFor(file)).c_str(), nullptr, kContext));
    EXPECT_THAT(heard, ElementsAre(invalid, invalid));
}

TEST_F(VerifyExports, CallBackForEachSignature) {
    const auto report = [&](const fs::path& file, NorvikSignInfoCallback callback = HearSignature) {
        EXPORT(NorvikSignInfo)(file.u16string().c_str(), callback, kContext);
    };
    const auto report2 = EXPORT(NorvikSignInfo2);
    const auto file = Attached();
    report(file);
    Change(file, ReadFile(file).find("words"));
    report(file);
    const auto stranger = Issue({.subject = {{"CN", "Непознат"}}, .key = TestKey(KeyType::p256, 6)});
    const auto strange = OpenSslSign("s.p7s", {{stranger}, {}, ""});
    report2(strange.u16string().c_str(), (documents_ / "data").u16string().c_str(), HearSignature, kContext);
    report(strange);
    EXPORT(NorvikSignInfo)(nullptr, HearSignature, kContext);
    report2(u"", nullptr, HearSignature, kContext);
    report(file, nullptr);

    tessaly::CryptCertificate signer(pki_.signer.Der());
    const auto dates = platform::ToUtf8(signer.GetValidFrom() + u"\\|" + signer.GetValidTo());
    const std::string time = "20[0-9-]{8} [0-9:]{8}\\|", nowhere = "error|File does not exist!!!";
    const auto rest = "\\|Иван Петров\\|" + dates + "\\|" + pki_.signer.Thumbprint() + "\\|Norvik Test CA\\|";
    EXPECT_THAT(heard, ElementsAre(MatchesRegex(time + "Подписът е валиден" + rest + "0"),
                                   MatchesRegex(time + "Хеш стойността не е правилна\\." + rest + "1"),
                                   MatchesRegex(time + "Веригата за сертифициране.*\\|Непознат\\|.*\\|1"), nowhere,
                                   nowhere, nowhere));
}

TEST_F(VerifyExports, TellDetachedFromAttached) {
    const auto isP7s = EXPORT(NorvikIsP7S);
    EXPECT_TRUE(isP7s(Detached().u16string().c_str(), HearJson, kContext));
    EXPECT_FALSE(isP7s(Attached().u16string().c_str(), HearJson, kContext));
    EXPECT_TRUE(heard.empty());
    EXPECT_FALSE(isP7s(u"/nowhere/a.p7s", HearJson, kContext));
    EXPECT_FALSE(isP7s(Document("x.p7s", "words").u16string().c_str(), HearJson, kContext));
    EXPECT_THAT(heard, ElementsAre("No such file or directory", HasSubstr("Error 0x8009310b")));
    EXPECT_TRUE(isP7s(Detached().u16string().c_str(), nullptr, 0));
    EXPECT_FALSE(isP7s(nullptr, nullptr, 0));
}

TEST_F(VerifyExports, TakeTheContentOutAndTellOfEverySigner) {
    const auto work = CNorvikApp::Current()->SessionFolder();
    const auto good = Extract(Attached("писмо.txt.p7m"));
    EXPECT_EQ(good.result, 1);
    EXPECT_EQ(fs::path(good.path), work / "писмо.txt");
    EXPECT_EQ(ReadFile(good.path), "words");
    EXPECT_THAT(good.text, MatchesRegex("L1=1\nN1=Иван Петров\nD1=[0-9]{2}\\.[0-9]{2}\\.20[0-9]{2} [0-9]{2}:[0-9]{2}\n"
                                        "S1=Валиден\nC1=\nT1=" +
                                        pki_.signer.Thumbprint() + "\n"));
    EXPECT_THAT(Extract(Timeless()).text, HasSubstr("\nD1=n/a\n"));
    const auto forger = Issue({.subject = {{"CN", "Иван\nS1=Валиден\r\nX"}}, .key = TestKey(KeyType::p256, 6)});
    const auto forged = Extract(OpenSslSign("x.p7m", {{forger}})).text;
    EXPECT_EQ(std::ranges::count(forged, '\n'), 6) << "a line for each value, whatever a signer is called";

    const auto misnamed = Attached("a.p7s", "inside");
    EXPECT_EQ(ReadFile(Extract(misnamed).path), "inside");
    EXPECT_FALSE(fs::exists(work / "a.p7m")) << "the copy is gone";
    EXPECT_TRUE(fs::exists(misnamed));
    std::u16string path(4096, u'\0');
    const auto extract = EXPORT(NorvikExtractFile);
    EXPECT_EQ(extract(Attached().u16string().c_str(), path.data(), nullptr, 0), 1);
    EXPECT_NE(path[0], u'\0');
}

TEST_F(VerifyExports, ExtractNothingFromADetachedSignatureButTellOfIt) {
    const auto file = Detached();
    EXPECT_EQ(Extract(file, 1).text, "");
    EXPECT_THAT(script_.Texts(), ElementsAre(kMissing));
    EXPECT_EQ(script_.shown[0].title, u"Грешка");
    EXPECT_EQ(Extract(file, 0).text, "") << "the person cancels";
    ASSERT_EQ(script_.filesAsked.size(), 1U);
    EXPECT_EQ(script_.filesAsked[0].title, u"Посочете оригинален файл");
    script_.openFile = documents_ / "data";
    EXPECT_THAT(Extract(file, 0).text, HasSubstr("\nS1=Валиден\n"));

    Document("a.txt", "words");
    const auto beside = Extract(file, 0);
    EXPECT_EQ(beside.result, 0);
    EXPECT_EQ(beside.path, "");
    EXPECT_THAT(beside.text, HasSubstr("\nS1=Валиден\n"));
    EXPECT_EQ(script_.filesAsked.size(), 2U) << "nobody is asked for what lies there";
    EXPECT_EQ(script_.shown.size(), 1U);
}

TEST_F(VerifyExports, ShowTheVerdictsAndAskForMissingData) {
    const auto attached = Attached(), misnamed = Attached("b.p7s"), detached = Detached("c.txt.p7s");
    EXPECT_EQ(Show(attached), 1);
    Show(misnamed);
    Show(misnamed);
    EXPECT_TRUE(fs::exists(CNorvikApp::Current()->SessionFolder() / "b.p7m"));
    Show(detached);  // cancelled
    EXPECT_TRUE(script_.shown.empty());
    script_.openFile = documents_ / "data";
    Show(detached);
    EXPECT_EQ(script_.filesAsked.size(), 2U);
    using testing::Pair;
    EXPECT_THAT(shown_, ElementsAre(Pair(attached, ""), Pair(misnamed, ""), Pair(misnamed, ""),
                                    Pair(detached, documents_ / "data")))
        << "the names that the caller gave";

    Show(detached, 1);
    Show(documents_ / "missing.p7m");
    Show(documents_ / "missing.p7s");
    EXPECT_EQ(shown_.size(), 4U);
    EXPECT_THAT(script_.Texts(), ElementsAre(kMissing, kMissing, "No such file or directory"));
    for (const auto& message : script_.shown) {
        EXPECT_EQ(message.title, u"Грешка");
        EXPECT_EQ(message.icon, ui::Message::Icon::error);
    }
}

TEST_F(VerifyExports, OfTheLauncherShowTheSame) {
    const auto file = Attached();
    int window = 0;
    for (const auto show :
         {EXPORT(NorvikDecryptVerifyFileEx), EXPORT(EPNorvikDecryptVerifyFileW), EXPORT(EPNorvikDecryptVerifyFileEx)}) {
        CNorvikApp::Current()->parentWindow = nullptr;
        show(&window, nullptr, file.u16string().c_str(), 1);
        EXPECT_EQ(CNorvikApp::Current()->parentWindow, &window);
    }
    for (const auto* name : {file.c_str(), static_cast<const char*>(nullptr)})
        EXPORT(EPNorvikDecryptVerifyFileA)(nullptr, nullptr, name, 1);
    EXPECT_EQ(CNorvikApp::Current()->parentWindow, nullptr);
    EXPECT_EQ(shown_.size(), 4U);
    EXPECT_THAT(script_.Texts(), ElementsAre(kMissing));
}

TEST_F(VerifyExports, WriteTheFirstSignerDetached) {
    const auto detach = EXPORT(NorvikP7M2P7S);
    const auto call = [&](const fs::path& from, const fs::path& to) {
        return detach(from.u16string().c_str(), to.u16string().c_str());
    };
    const auto target = documents_ / "a.txt.p7s", none = documents_ / "x.p7s";
    EXPECT_TRUE(call(Attached(), target));
    const auto bytes = ReadFile(target);
    EXPECT_EQ(bytes.find("words"), std::string::npos);
    EXPECT_EQ(bytes.find("Norvik Test Root"), std::string::npos) << "no certificates";
    OpenSsl({"cms", "-verify", "-binary", "-inform", "DER", "-in", target, "-content", documents_ / "data", "-certfile",
             profile_.Write("s.pem", pki_.signer.Pem()), "-CAfile", profile_.Write("chain.pem", pki_.ChainPem()),
             "-out", documents_ / "verified"});
    EXPECT_EQ(ReadFile(documents_ / "verified"), "words");

    for (const auto& source : {target, Document("noextension", "x"), Detached("d.p7m"), fs::path("/nowhere.p7m")})
        EXPECT_FALSE(call(source, none)) << source;
    const auto only = Attached("only.p7m");
    const auto before = ReadFile(only);
    EXPECT_FALSE(call(only, documents_ / "." / "only.p7m"));
    EXPECT_EQ(ReadFile(only), before) << "the content is nowhere else";
    EXPECT_FALSE(detach(nullptr, nullptr));
    EXPECT_FALSE(fs::exists(none));
    EXPECT_TRUE(script_.shown.empty());
    EXPECT_THAT(Log(), testing::AllOf(HasSubstr("Not a P7M file!!!"), HasSubstr("File without extension!!!")));
    EXPECT_TRUE(call(Attached(), documents_)) << "true whatever came of it";
    EXPECT_THAT(script_.Texts(), ElementsAre(HasSubstr("Следният файл не може да бъде отворен:\n")));
    EXPECT_THAT(Log(), HasSubstr("Failed to open: "));
}

}  // namespace

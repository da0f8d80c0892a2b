// The exports on signed files as an application calls them.

#include "norvik/norvik.h"
#include "src/certificates/Record.h"
#include "tests/src/Heard.h"
#include "tests/src/LoadedLibrary.h"
#include "tests/src/VerificationTest.h"
#include "toolkit/CkJsonArrayW.h"
#include "toolkit/CkJsonObjectW.h"

namespace {

namespace fs = std::filesystem;
using namespace tests;
using testing::ElementsAre;
using testing::HasSubstr;

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
        const bool done =
            NORVIK_EXPORT_OF(library_, NorvikSignInfoJson)(platform::ToWide(request).c_str(), HearJson, kContext);
        EXPECT_EQ(done, expected) << request;
        EXPECT_EQ(heard.size(), 1U);
        return heard.empty() ? "" : heard[0];
    }
    static std::string RequestFor(const fs::path& file, const fs::path& data = {}) {
        return R"({"SignFile":")" + file.string() + "\"" +
               (data.empty() ? "" : R"(,"DataFile":")" + data.string() + "\"") + "}";
    }
    // The names of the members of the first object, in their order, without those inside of them.
    static std::vector<std::string> KeysOf(const std::string& json) {
        const auto done = RunProgram({"python3", "-c", "import json,sys\nprint('\\n'.join(json.load(sys.stdin)[0]))"},
                                     {.input = json});
        std::vector<std::string> keys;
        std::istringstream lines(done.output);
        for (std::string key; std::getline(lines, key);)
            keys.push_back(key);
        return keys;
    }
    static std::string Value(const std::string& json, const char16_t* path) {
        toolkit::CkJsonArrayW array;
        array.Load(platform::ToWide(json).c_str());
        const auto object = array.ObjectAt(0);
        const auto* const text = object ? object->StringOf(path) : nullptr;
        return text == nullptr ? "(none)" : platform::ToUtf8(text);
    }
    struct Extracted {
        int result = 0;
        std::string path, text;
    };
    Extracted Extract(const fs::path& file, int flag = 1) {
        std::u16string path(4096, u'\0'), text(4096, u'\0');
        Extracted out;
        out.result =
            NORVIK_EXPORT_OF(library_, NorvikExtractFile)(file.u16string().c_str(), path.data(), text.data(), flag);
        out.path = platform::ToUtf8(path.c_str());
        out.text = platform::ToUtf8(text.c_str());
        return out;
    }
    int Show(const fs::path& file, int flag) {
        return NORVIK_EXPORT_OF(library_, NorvikDecryptVerifyFile)(file.u16string().c_str(), flag);
    }

    const LoadedLibrary library_{script_};
    std::vector<std::pair<fs::path, fs::path>> shown_;  // signed file and data of each window
};

TEST_F(VerifyExports, ReportAGoodSignatureKeyByKey) {
    const auto json = Json(RequestFor(Attached()));
    EXPECT_THAT(json, testing::StartsWith("[\r\n  {\r\n    \"SignStatus\": \"ok\","));
    EXPECT_THAT(KeysOf(json), ElementsAre("SignStatus", "CertStatus", "Certificate", "HashAlgorithm", "CADES",
                                          "Timestamp", "SigningTime", "Digest"));
    const auto digest = Hex(platform::Digest(platform::HashAlgorithm::sha256, platform::AsBytes("words")));
    for (const auto& [path, value] : {std::pair<const char16_t*, std::string>{u"CertStatus", "ok"},
                                      {u"Certificate.Thumbprint", pki_.signer.Thumbprint()},
                                      {u"Certificate.CommonName", "Иван Петров"},
                                      {u"HashAlgorithm", "SHA256"},
                                      {u"CADES", "false"},
                                      {u"Timestamp", "false"},
                                      {u"Digest", digest}})
        EXPECT_EQ(Value(json, path), value);
    EXPECT_THAT(Value(json, u"SigningTime"), testing::MatchesRegex("20[0-9-]{8}T[0-9:]{8}[+-][0-9:]{5}"));
}

TEST_F(VerifyExports, ReportABadSignatureAndABadCertificateApart) {
    const auto file = Attached();
    Change(file, "words");
    auto json = Json(RequestFor(file));
    EXPECT_THAT(KeysOf(json),
                ElementsAre("Error", "ErrorMessage", "SignStatus", "SignStatusMessage", "CertStatus", "Certificate",
                            "HashAlgorithm", "CADES", "Timestamp", "SigningTime", "Digest"));
    EXPECT_EQ(Value(json, u"Error"), "true");
    EXPECT_EQ(Value(json, u"ErrorMessage"), "Хеш стойността не е правилна.");
    EXPECT_EQ(Value(json, u"SignStatusMessage"), "Хеш стойността не е правилна.");

    InstallCrl(profile_, "CA", MakeCrl(pki_.ca, {.revoked = {{pki_.signer.Serial(), 1'700'000'000}}, .number = 2}));
    json = Json(RequestFor(OpenSslSign("b.p7m", "data", {{pki_.signer}, {pki_.ca}, {"-nodetach", "-noattr"}})));
    EXPECT_THAT(KeysOf(json), ElementsAre("SignStatus", "CertStatus", "CertStatusMessage", "Certificate",
                                          "HashAlgorithm", "CADES", "Timestamp", "Digest"))
        << "a good signature is no error, and one that tells no time has no key for it";
    EXPECT_EQ(Value(json, u"SignStatus"), "ok");
    EXPECT_EQ(Value(json, u"CertStatus"), "fail");
    EXPECT_EQ(Value(json, u"CertStatusMessage"), "Сертификатът или подписът са отменени.");
}

TEST_F(VerifyExports, TakeTheDataOfADetachedSignatureFromTheRequestAndAnswerFailuresAsOneObject) {
    const auto file = Detached();
    const auto missing = Json(RequestFor(file), false);
    EXPECT_EQ(missing,
              "[\r\n  {\r\n    \"Error\": true,\r\n    \"ErrorMessage\": \"File does not exist!!!\"\r\n  }\r\n]\r\n");
    EXPECT_EQ(Value(Json(RequestFor(file, Documents() / "data")), u"SignStatus"), "ok");
    Document("a.txt", "words");
    EXPECT_EQ(Value(Json(RequestFor(file)), u"SignStatus"), "ok");
    EXPECT_THAT(Json(RequestFor(Document("x.p7m", "no signature")), false), HasSubstr("Error 0x"));
    EXPECT_THAT(KeysOf(Json(R"({"SignFile":"/tmp/\ud800.p7m"})", false)), ElementsAre("Error", "ErrorMessage"));

    const std::string invalid = R"([{"Error":true,"ErrorMessage":"Invalid input parameters"}])";
    for (const auto* request : {"", " \t\v\f\r\n", "{}", "[]", "x", R"({"DataFile":"x"})"})
        EXPECT_EQ(Json(request, false), invalid) << request;
    const auto call = NORVIK_EXPORT_OF(library_, NorvikSignInfoJson);
    EXPECT_FALSE(call(nullptr, HearJson, kContext));
    EXPECT_FALSE(call(platform::ToWide(RequestFor(file)).c_str(), nullptr, kContext));
    EXPECT_THAT(heard, ElementsAre(invalid, invalid));
}

TEST_F(VerifyExports, CallBackForEachSignature) {
    const auto report = NORVIK_EXPORT_OF(library_, NorvikSignInfo);
    const auto report2 = NORVIK_EXPORT_OF(library_, NorvikSignInfo2);
    const auto file = Attached();
    report(file.u16string().c_str(), HearSignature, kContext);
    Change(file, "words");
    report(file.u16string().c_str(), HearSignature, kContext);
    const auto stranger = Issue({.subject = {{"CN", "Непознат"}}, .key = TestKey(KeyType::p256, 6)});
    const auto strange = OpenSslSign("s.p7s", "data", {{stranger}, {}, {}});
    report2(strange.u16string().c_str(), (Documents() / "data").u16string().c_str(), HearSignature, kContext);
    report(strange.u16string().c_str(), HearSignature, kContext);
    report(nullptr, HearSignature, kContext);
    report2(u"", nullptr, HearSignature, kContext);
    report(file.u16string().c_str(), nullptr, kContext);

    tessaly::CryptCertificate signer(pki_.signer.Der());
    const auto dates = platform::ToUtf8(signer.GetValidFrom() + u"\\|" + signer.GetValidTo());
    const std::string time = "20[0-9-]{8} [0-9:]{8}\\|", nowhere = "error|File does not exist!!!";
    const auto rest = "\\|Иван Петров\\|" + dates + "\\|" + pki_.signer.Thumbprint() + "\\|Norvik Test CA\\|";
    using testing::MatchesRegex;
    EXPECT_THAT(heard, ElementsAre(MatchesRegex(time + "Подписът е валиден" + rest + "0"),
                                   MatchesRegex(time + "Хеш стойността не е правилна\\." + rest + "1"),
                                   MatchesRegex(time + "Веригата за сертифициране.*\\|Непознат\\|.*\\|1"), nowhere,
                                   nowhere, nowhere));
}

TEST_F(VerifyExports, TellDetachedFromAttached) {
    const auto isP7s = NORVIK_EXPORT_OF(library_, NorvikIsP7S);
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
    const auto good = Extract(Attached("писмо.txt.p7m", "words"));
    EXPECT_EQ(good.result, 1);
    EXPECT_EQ(fs::path(good.path).filename(), "писмо.txt");
    EXPECT_EQ(fs::path(good.path).parent_path(), CNorvikApp::Current()->SessionFolder());
    EXPECT_EQ(ReadFile(good.path), "words");
    EXPECT_THAT(good.text, testing::MatchesRegex("L1=1\nN1=Иван Петров\nD1=[0-9]{2}\\.[0-9]{2}\\.20[0-9]{2} "
                                                 "[0-9]{2}:[0-9]{2}\nS1=Валиден\nC1=\nT1=" +
                                                 pki_.signer.Thumbprint() + "\n"));
    const auto misnamed = Attached("a.p7s", "inside");
    EXPECT_EQ(ReadFile(Extract(misnamed).path), "inside");
    EXPECT_FALSE(fs::exists(CNorvikApp::Current()->SessionFolder() / "a.p7m")) << "the copy is gone";
    EXPECT_TRUE(fs::exists(misnamed));

    Document("data", "words");
    const auto timeless = Extract(OpenSslSign("t.p7m", "data", {{pki_.signer}, {pki_.ca}, {"-nodetach", "-noattr"}}));
    EXPECT_THAT(timeless.text, HasSubstr("\nD1=n/a\n"));
    std::u16string path(4096, u'\0');
    EXPECT_EQ(NORVIK_EXPORT_OF(library_, NorvikExtractFile)(Attached().u16string().c_str(), path.data(), nullptr, 0),
              1);
    EXPECT_NE(path[0], u'\0');
}

TEST_F(VerifyExports, ExtractNothingFromADetachedSignatureButTellOfIt) {
    const auto file = Detached();
    Document("a.txt", "words");
    const auto beside = Extract(file);
    EXPECT_EQ(beside.result, 0);
    EXPECT_EQ(beside.path, "");
    EXPECT_THAT(beside.text, HasSubstr("\nS1=Валиден\n"));
    EXPECT_TRUE(script_.filesAsked.empty());
    fs::remove(Documents() / "a.txt");

    EXPECT_EQ(Extract(file, 1).text, "");
    EXPECT_THAT(script_.Texts(), ElementsAre("File does not exist!!!"));
    EXPECT_EQ(script_.shown[0].title, u"Грешка");
    EXPECT_EQ(Extract(file, 0).text, "") << "the person cancels";
    ASSERT_EQ(script_.filesAsked.size(), 1U);
    EXPECT_EQ(script_.filesAsked[0].title, u"Посочете оригинален файл");
    EXPECT_EQ(script_.shown.size(), 1U);
    script_.openFile = Documents() / "data";
    EXPECT_THAT(Extract(file, 0).text, HasSubstr("\nS1=Валиден\n"));
}

TEST_F(VerifyExports, KeepALineForEachValueWhateverASignerIsCalled) {
    const auto forger = Issue({.subject = {{"CN", "Иван\nS1=Валиден\r\nX"}}, .key = TestKey(KeyType::p256, 6)});
    Document("data", "words");
    const auto text = Extract(OpenSslSign("x.p7m", "data", {{forger}, {}, {"-nodetach"}})).text;
    EXPECT_EQ(std::ranges::count(text, '\n'), 6) << text;
}

TEST_F(VerifyExports, ShowTheVerdictsAndAskForMissingData) {
    const auto attached = Attached();
    EXPECT_EQ(Show(attached, 0), 1);
    ASSERT_EQ(shown_.size(), 1U);
    EXPECT_EQ(shown_[0].first, attached);

    const auto misnamed = Attached("b.p7s");
    Show(misnamed, 0);
    Show(misnamed, 0);
    EXPECT_EQ(shown_.back().first, misnamed) << "the name that the caller gave";
    EXPECT_TRUE(fs::exists(CNorvikApp::Current()->SessionFolder() / "b.p7m"));

    const auto detached = Detached("c.txt.p7s");
    Show(detached, 0);
    EXPECT_EQ(shown_.size(), 3U) << "cancelled";
    EXPECT_TRUE(script_.shown.empty());
    script_.openFile = Documents() / "data";
    Show(detached, 0);
    EXPECT_EQ(shown_.back().second, Documents() / "data");
    EXPECT_EQ(script_.filesAsked.size(), 2U);
    Show(detached, 1);
    EXPECT_THAT(script_.Texts(), ElementsAre("File does not exist!!!"));
    EXPECT_EQ(shown_.size(), 4U);

    Show(Documents() / "missing.p7m", 0);
    Show(Documents() / "missing.p7s", 0);
    EXPECT_EQ(script_.shown.size(), 3U);
    for (const auto& message : script_.shown) {
        EXPECT_EQ(message.title, u"Грешка");
        EXPECT_EQ(message.icon, ui::Message::Icon::error);
    }
}

TEST_F(VerifyExports, OfTheLauncherShowTheSame) {
    const auto file = Attached();
    const auto wide = file.u16string();
    int window = 0;
    NORVIK_EXPORT_OF(library_, NorvikDecryptVerifyFileEx)(&window, nullptr, wide.c_str(), 1);
    EXPECT_EQ(CNorvikApp::Current()->parentWindow, &window);
    NORVIK_EXPORT_OF(library_, EPNorvikDecryptVerifyFileW)(nullptr, nullptr, wide.c_str(), 1);
    EXPECT_EQ(CNorvikApp::Current()->parentWindow, nullptr);
    NORVIK_EXPORT_OF(library_, EPNorvikDecryptVerifyFileA)(&window, nullptr, file.c_str(), 1);
    NORVIK_EXPORT_OF(library_, EPNorvikDecryptVerifyFileEx)(nullptr, nullptr, wide.c_str(), 1);
    EXPECT_EQ(shown_.size(), 4U);
    NORVIK_EXPORT_OF(library_, EPNorvikDecryptVerifyFileA)(nullptr, nullptr, nullptr, 1);
    EXPECT_THAT(script_.Texts(), ElementsAre("File does not exist!!!"));
}

TEST_F(VerifyExports, WriteTheFirstSignerDetached) {
    const auto detach = NORVIK_EXPORT_OF(library_, NorvikP7M2P7S);
    const auto call = [&](const fs::path& from, const fs::path& to) {
        return detach(from.u16string().c_str(), to.u16string().c_str());
    };
    const auto target = Documents() / "a.txt.p7s";
    EXPECT_TRUE(call(Attached(), target));
    const auto bytes = ReadFile(target);
    EXPECT_EQ(bytes.find("words"), std::string::npos);
    EXPECT_EQ(bytes.find("Norvik Test Root"), std::string::npos) << "no certificates";
    const auto judged = RunProgram({"openssl", "cms", "-verify", "-binary", "-inform", "DER", "-in", target, "-content",
                                    Documents() / "data", "-certfile", profile_.Write("s.pem", pki_.signer.Pem()),
                                    "-CAfile", profile_.Write("chain.pem", pki_.ChainPem()), "-out", "/dev/stdout"});
    EXPECT_EQ(judged.output, "words") << judged.errors;

    EXPECT_FALSE(call(target, Documents() / "x.p7s"));
    EXPECT_FALSE(call(Document("noextension", "x"), Documents() / "x.p7s"));
    EXPECT_FALSE(call(Detached("d.p7m"), Documents() / "x.p7s"));
    EXPECT_FALSE(call("/nowhere.p7m", Documents() / "x.p7s"));
    EXPECT_FALSE(detach(nullptr, nullptr));
    EXPECT_FALSE(fs::exists(Documents() / "x.p7s"));
    EXPECT_TRUE(script_.shown.empty());
    EXPECT_THAT(Log(), testing::AllOf(HasSubstr("Not a P7M file!!!"), HasSubstr("File without extension!!!")));
    EXPECT_TRUE(call(Attached(), Documents())) << "true whatever came of it";
    ASSERT_EQ(script_.shown.size(), 1U);
    EXPECT_THAT(script_.Texts()[0], HasSubstr("Следният файл не може да бъде отворен:\n"));
    EXPECT_THAT(Log(), HasSubstr("Failed to open: "));
}

}  // namespace

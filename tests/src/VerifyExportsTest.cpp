// The exports on signed files as an application calls them.

#include "norvik/norvik.h"
#include "src/certificates/Record.h"
#include "tests/src/LoadedLibrary.h"
#include "tests/src/VerificationTest.h"
#include "toolkit/CkJsonArrayW.h"
#include "toolkit/CkJsonObjectW.h"

namespace {

namespace fs = std::filesystem;
using namespace tests;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

constexpr std::uint64_t kContext = 0xFEDC'BA98'7654'3210;

struct Told {
    int error = 0, reserved = 0, failed = 0;
    std::vector<std::string> texts;  // message, time, text, subject, from, to, thumbprint, issuer; "(null)" for none
};
std::vector<Told> told;
std::vector<std::string> answers;

void HearJson(std::uint64_t context, const char16_t* json) {
    EXPECT_EQ(context, kContext);
    answers.push_back(platform::ToUtf8(json));
}
void HearSignature(std::uint64_t context, int error, const char16_t* message, int reserved, const char16_t* time,
                   int failed, const char16_t* text, const char16_t* subject, const char16_t* from, const char16_t* to,
                   const char16_t* thumbprint, const char16_t* issuer) {
    EXPECT_EQ(context, kContext);
    Told record{error, reserved, failed, {}};
    for (const auto* one : {message, time, text, subject, from, to, thumbprint, issuer})
        record.texts.push_back(one == nullptr ? "(null)" : platform::ToUtf8(one));
    told.push_back(record);
}

class VerifyExports : public VerificationTest {
  protected:
    VerifyExports() {
        told.clear();
        answers.clear();
        script_.results = [&](const ui::ResultsQuestion& question) {
            EXPECT_FALSE(question.entries.empty());
            shown_.emplace_back(question.signFile, question.dataFile);
            return ui::ResultsAction::none;
        };
        InstallStandard();
    }
    template <typename Function>
    [[nodiscard]] Function* Export(Function*, const char* name) const {
        return library_.Export<Function>(name);
    }
    // The answer to a request, and whether the call said true.
    std::string Json(const std::string& request, bool* done = nullptr) {
        answers.clear();
        const bool result =
            Export(&NorvikSignInfoJson, "NorvikSignInfoJson")(platform::ToWide(request).c_str(), HearJson, kContext);
        if (done != nullptr) *done = result;
        EXPECT_EQ(answers.size(), 1U);
        return answers.empty() ? "" : answers[0];
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
            Export(&NorvikExtractFile, "NorvikExtractFile")(file.u16string().c_str(), path.data(), text.data(), flag);
        out.path = platform::ToUtf8(path.c_str());
        out.text = platform::ToUtf8(text.c_str());
        return out;
    }
    int Show(const fs::path& file, int flag) {
        return Export(&NorvikDecryptVerifyFile, "NorvikDecryptVerifyFile")(file.u16string().c_str(), flag);
    }

    const LoadedLibrary library_{script_};
    std::vector<std::pair<fs::path, fs::path>> shown_;  // signed file and data of each window
};

TEST_F(VerifyExports, ReportAGoodSignatureKeyByKey) {
    bool done = false;
    const auto file = Attached();
    const auto json = Json(RequestFor(file), &done);
    EXPECT_TRUE(done);
    EXPECT_THAT(json, testing::StartsWith("[\r\n  {\r\n    \"SignStatus\": \"ok\","));
    EXPECT_THAT(KeysOf(json), ElementsAre("SignStatus", "CertStatus", "Certificate", "HashAlgorithm", "CADES",
                                          "Timestamp", "SigningTime", "Digest"));
    EXPECT_EQ(Value(json, u"CertStatus"), "ok");
    EXPECT_EQ(Value(json, u"Certificate.Thumbprint"), pki_.signer.Thumbprint());
    EXPECT_EQ(Value(json, u"Certificate.CommonName"), "Иван Петров");
    EXPECT_EQ(Value(json, u"HashAlgorithm"), "SHA256");
    EXPECT_EQ(Value(json, u"CADES"), "false");
    EXPECT_EQ(Value(json, u"Timestamp"), "false");
    EXPECT_THAT(Value(json, u"SigningTime"),
                testing::MatchesRegex("20[0-9][0-9]-[0-9][0-9]-[0-9][0-9]T[0-9:]{8}[+-][0-9][0-9]:[0-9][0-9]"));
    EXPECT_EQ(Value(json, u"Digest"),
              Hex(platform::Digest(platform::HashAlgorithm::sha256, platform::AsBytes("words"))));
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
    Document("data", "words");
    const auto comment = Documents() / "b.p7m";
    OpenSslSign("b.p7m", "data", {{pki_.signer}, {pki_.ca}, {"-nodetach", "-noattr"}});
    json = Json(RequestFor(comment));
    EXPECT_THAT(KeysOf(json), ElementsAre("SignStatus", "CertStatus", "CertStatusMessage", "Certificate",
                                          "HashAlgorithm", "CADES", "Timestamp", "Digest"))
        << "a good signature is no error, and one that tells no time has no key for it";
    EXPECT_EQ(Value(json, u"SignStatus"), "ok");
    EXPECT_EQ(Value(json, u"CertStatus"), "fail");
    EXPECT_EQ(Value(json, u"CertStatusMessage"), "Сертификатът или подписът са отменени.");
}

TEST_F(VerifyExports, TakeTheDataOfADetachedSignatureFromTheRequest) {
    const auto file = Detached();
    EXPECT_THAT(Json(RequestFor(file)), HasSubstr("File does not exist!!!"));
    EXPECT_EQ(Value(Json(RequestFor(file, Documents() / "data")), u"SignStatus"), "ok");
    Document("a.txt", "words");
    EXPECT_EQ(Value(Json(RequestFor(file)), u"SignStatus"), "ok");
}

TEST_F(VerifyExports, AnswerFailuresAsOneObject) {
    const std::string invalid = R"([{"Error":true,"ErrorMessage":"Invalid input parameters"}])";
    for (const auto* request : {"", " \t\v\f\r\n", "{}", "[]", "x", R"({"DataFile":"x"})"}) {
        bool done = true;
        EXPECT_THAT(Json(request, &done), testing::StartsWith(invalid)) << request;
        EXPECT_FALSE(done);
    }
    const auto call = Export(&NorvikSignInfoJson, "NorvikSignInfoJson");
    EXPECT_FALSE(call(nullptr, HearJson, kContext));
    EXPECT_THAT(answers.back(), testing::StartsWith(invalid));
    EXPECT_FALSE(call(platform::ToWide(RequestFor(Attached())).c_str(), nullptr, kContext));
    EXPECT_EQ(answers.size(), 2U);

    const auto missing = Json(RequestFor("/nowhere/x.p7m"));
    EXPECT_THAT(KeysOf(missing), ElementsAre("Error", "ErrorMessage"));
    EXPECT_EQ(Value(missing, u"ErrorMessage"), "File does not exist!!!");
    EXPECT_THAT(Value(Json(RequestFor(Document("x.p7m", "no signature"))), u"ErrorMessage"), HasSubstr("Error 0x"));
    EXPECT_THAT(KeysOf(Json(R"({"SignFile":"/tmp/\ud800.p7m"})")), ElementsAre("Error", "ErrorMessage"));
}

TEST_F(VerifyExports, CallBackForEachSignature) {
    const auto report = Export(&NorvikSignInfo, "NorvikSignInfo");
    const auto report2 = Export(&NorvikSignInfo2, "NorvikSignInfo2");
    const auto file = Attached();
    tessaly::CryptCertificate signer(pki_.signer.Der());
    const auto from = platform::ToUtf8(signer.GetValidFrom()), to = platform::ToUtf8(signer.GetValidTo());
    report(file.u16string().c_str(), HearSignature, kContext);
    ASSERT_EQ(told.size(), 1U);
    const auto time = told[0].texts[1];
    EXPECT_THAT(time, testing::MatchesRegex("20[0-9-]{8} [0-9:]{8}"));
    EXPECT_EQ(std::make_tuple(told[0].error, told[0].reserved, told[0].failed), std::make_tuple(0, 0, 0));
    EXPECT_THAT(told[0].texts, ElementsAre("(null)", time, "Подписът е валиден", "Иван Петров", from, to,
                                           pki_.signer.Thumbprint(), "Norvik Test CA"));

    Change(file, "words");
    report(file.u16string().c_str(), HearSignature, kContext);
    EXPECT_EQ(told[1].failed, 1);
    EXPECT_EQ(told[1].texts[2], "Хеш стойността не е правилна.");

    const auto stranger = Issue({.subject = {{"CN", "Непознат"}}, .key = TestKey(KeyType::p256, 6)});
    const auto strange = OpenSslSign("s.p7s", "data", {{stranger}, {}, {}});
    report2(strange.u16string().c_str(), (Documents() / "data").u16string().c_str(), HearSignature, kContext);
    EXPECT_EQ(told[2].failed, 1);
    EXPECT_THAT(told[2].texts[2], HasSubstr("Веригата за сертифициране"));

    report(strange.u16string().c_str(), HearSignature, kContext);
    EXPECT_EQ(told[3].error, 1);
    EXPECT_THAT(told[3].texts, ElementsAre("File does not exist!!!", "(null)", "(null)", "(null)", "(null)", "(null)",
                                           "(null)", "(null)"));
    report(nullptr, HearSignature, kContext);
    report2(u"", nullptr, HearSignature, kContext);
    EXPECT_EQ(told[5].texts[0], "File does not exist!!!");
    report(file.u16string().c_str(), nullptr, kContext);
    EXPECT_EQ(told.size(), 6U);
}

TEST_F(VerifyExports, TellDetachedFromAttached) {
    const auto isP7s = Export(&NorvikIsP7S, "NorvikIsP7S");
    EXPECT_TRUE(isP7s(Detached().u16string().c_str(), HearJson, kContext));
    EXPECT_FALSE(isP7s(Attached().u16string().c_str(), HearJson, kContext));
    EXPECT_THAT(answers, IsEmpty());
    EXPECT_FALSE(isP7s(u"/nowhere/a.p7s", HearJson, kContext));
    EXPECT_FALSE(isP7s(Document("x.p7s", "words").u16string().c_str(), HearJson, kContext));
    EXPECT_THAT(answers, ElementsAre("No such file or directory", HasSubstr("Error 0x8009310b")));
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
    EXPECT_EQ(Export(&NorvikExtractFile, "NorvikExtractFile")(Attached().u16string().c_str(), path.data(), nullptr, 0),
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
    Export(&NorvikDecryptVerifyFileEx, "NorvikDecryptVerifyFileEx")(&window, nullptr, wide.c_str(), 1);
    EXPECT_EQ(CNorvikApp::Current()->parentWindow, &window);
    Export(&EPNorvikDecryptVerifyFileW, "EPNorvikDecryptVerifyFileW")(nullptr, nullptr, wide.c_str(), 1);
    EXPECT_EQ(CNorvikApp::Current()->parentWindow, nullptr);
    Export(&EPNorvikDecryptVerifyFileA, "EPNorvikDecryptVerifyFileA")(&window, nullptr, file.c_str(), 1);
    Export(&EPNorvikDecryptVerifyFileEx, "EPNorvikDecryptVerifyFileEx")(nullptr, nullptr, wide.c_str(), 1);
    EXPECT_EQ(shown_.size(), 4U);
    Export(&EPNorvikDecryptVerifyFileA, "EPNorvikDecryptVerifyFileA")(nullptr, nullptr, nullptr, 1);
    EXPECT_THAT(script_.Texts(), ElementsAre("File does not exist!!!"));
}

TEST_F(VerifyExports, WriteTheFirstSignerDetached) {
    const auto detach = Export(&NorvikP7M2P7S, "NorvikP7M2P7S");
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

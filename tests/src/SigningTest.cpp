#include "src/settings/Settings.h"
#include "src/signing/Relay.h"
#include "src/signing/SignEngine.h"
#include "src/signing/SignExports.h"
#include "src/signing/SignRequest.h"
#include "tests/src/Exports.h"
#include "tests/src/Person.h"
#include "tests/support/ChainWorld.h"
#include "tests/support/Process.h"
#include "tests/support/TsaServer.h"
#include "toolkit/CkJsonObjectW.h"
#include "units/Registry.h"

namespace {

namespace fs = std::filesystem;
using namespace tests;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;

class Signing : public PersonTest {
  protected:
    Signing() { pki_.Install(profile_); }
    const StandardPki pki_;
    fs::path file_ = profile_.Write("documents/договор.pdf", "The words that count.\n");
};

class SignEngineTest : public Signing {
  protected:
    bool Sign(bool detached, const settings::TsaRecord* authority = nullptr, const fs::path& folder = {}) {
        return signing::SignEngine(file_.u16string(), ContextOf(pki_.signer), authority, detached, result_,
                                   folder.u16string());
    }
    // What openssl prints of the message; empty if it does not accept it.
    [[nodiscard]] std::string AcceptedStructure(bool detached) const {
        const fs::path signature(result_);
        std::vector<std::string> verify = {
            "openssl", "cms",        "-verify", "-binary", "-inform",
            "DER",     "-in",        signature, "-CAfile", profile_.Write("root.pem", pki_.root.Pem()),
            "-out",    "/dev/stdout"};
        if (detached) verify.insert(verify.end(), {"-content", file_});
        const auto verdict = RunProgram(verify);
        if (verdict.status != 0 || verdict.output != ReadFile(file_)) return "";
        return RunProgram({"openssl", "cms", "-cmsout", "-print", "-inform", "DER", "-in", signature}).output;
    }

    std::u16string result_ = u"untouched";
};

TEST_F(SignEngineTest, LeavesBothFormsSideBySideUnderTheInputsWholeName) {
    profile_.Write("documents/договор.pdf.p7m", "old");  // replaced without a question
    ASSERT_TRUE(Sign(false)) << Log();
    EXPECT_EQ(result_, file_.u16string() + u".p7m");
    EXPECT_THAT(AcceptedStructure(false), HasSubstr("signingTime"));
    ASSERT_TRUE(Sign(true)) << Log();
    EXPECT_EQ(result_, file_.u16string() + u".p7s");
    EXPECT_THAT(AcceptedStructure(true), HasSubstr("sha256WithRSAEncryption"));
    EXPECT_TRUE(fs::exists(file_.string() + ".p7m"));
    EXPECT_EQ(ReadFile(file_), "The words that count.\n");
    for (const auto* name : {"report", "report.p7m", "№ 5.docx", "a.b.c"}) {
        file_ = profile_.Write(fs::path("documents") / name, "content");
        ASSERT_TRUE(Sign(false)) << name;
        EXPECT_EQ(result_, file_.u16string() + u".p7m");
        EXPECT_TRUE(fs::exists(result_));
    }
    const auto folder = profile_.Folder() / "made";
    ASSERT_TRUE(Sign(true, nullptr, folder));
    EXPECT_EQ(result_, (folder / "a.b.c.p7s").u16string());
    EXPECT_TRUE(fs::exists(result_));
    EXPECT_THROW(Sign(true, nullptr, profile_.Folder() / "no/parent"), fs::filesystem_error);
    EXPECT_TRUE(script_.shown.empty());
}

TEST_F(SignEngineTest, TellsWhatIsMissingAndWritesNothingWithoutTheTimestampThatWasAskedFor) {
    const TsaServer tsa(pki_.tsa, {pki_.ca}, {.reply = TsaBehaviour::Reply::rejected});
    const settings::TsaRecord authority{platform::ToWide(tsa.Url()), u"", u"", u""};
    EXPECT_FALSE(Sign(false, &authority));
    EXPECT_THAT(Log(), HasSubstr("Timestamp server reply does not indicate success."));
    EXPECT_FALSE(fs::exists(file_.string() + ".p7m"));
    EXPECT_FALSE(
        signing::SignEngine(file_.u16string(), ContextOf(Issue({})), nullptr, false, result_, u""));  // in no store
    file_ = profile_.Folder() / "missing.txt";
    EXPECT_FALSE(Sign(false));
    EXPECT_THAT(Log(), HasSubstr("[info] Missing file for signing " + file_.string()));
    EXPECT_THAT(script_.Texts(), ElementsAre("Грешка при подписване на файл!\n"
                                             "За повече информация може да погледнете log файла.",
                                             "Няма намерен сертификат!", "Файлът за подписване не съществува!!!"));
    EXPECT_EQ(result_, u"untouched");
}

TEST_F(SignEngineTest, WarnsOfARevokedCertificateAndSignsAllTheSame) {
    InstallCrl(profile_, "CA", MakeCrl(pki_.ca, {.revoked = {{pki_.signer.Serial(), 1'700'000'000}}}));
    EXPECT_TRUE(Sign(false));
    EXPECT_THAT(script_.Texts(), ElementsAre("Не може да подпишете с прекратен сертификат."));
    EXPECT_TRUE(fs::exists(file_.string() + ".p7m"));
}

TEST_F(SignEngineTest, TakesSha1OnlyWhereTheSettingSaysItExactly) {
    CRegistry registry;
    ASSERT_TRUE(registry.Open(settings::kVerificationKey, true));
    for (const auto& [setting, digest] : {std::pair{u"SHA1", "sha1 "}, {u"sha1", "sha256 "}, {u"md5", "sha256 "}}) {
        ASSERT_TRUE(registry.WriteString(u"HashAlg", setting));
        ASSERT_TRUE(Sign(false));
        EXPECT_THAT(AcceptedStructure(false),
                    HasSubstr(std::string("digestAlgorithm: \n          algorithm: ") + digest))
            << platform::ToUtf8(setting);
    }
}

TEST_F(SignEngineTest, PutsTheTimestampInPlaceOfTheSigningTimeAndSendsWholeCredentialsOnly) {
    const TsaServer tsa(pki_.tsa, {pki_.ca, pki_.root});
    for (const auto& [user, password] : {std::pair{u"иван", u""}, {u"", u"тайна"}, {u"иван", u"тайна"}}) {
        const settings::TsaRecord authority{platform::ToWide(tsa.Url()), u"", user, password};
        const bool detached = *user == 0;
        ASSERT_TRUE(Sign(detached, &authority)) << Log();
        const auto structure = AcceptedStructure(detached);
        EXPECT_THAT(structure, HasSubstr("id-smime-aa-timeStampToken"));
        EXPECT_THAT(structure.substr(structure.find("signerInfos")), Not(HasSubstr("object: signingTime")));
    }
    std::vector<std::optional<std::string>> sent;
    for (const auto& request : tsa.Requests())
        sent.push_back(request.Credentials());
    EXPECT_THAT(sent, ElementsAre(std::nullopt, std::nullopt, "иван:тайна"));
    EXPECT_THAT(Log(), Not(HasSubstr("тайна")));
}

class SignRequestTest : public Signing {
  protected:
    SignRequestTest() {
        heard.clear();
        script_.decide = [](const ui::SignQuestion& question) -> std::optional<ui::SignDecision> {
            if (question.certificates.empty()) return std::nullopt;
            return ui::SignDecision{question.certificates[0].Context(), std::nullopt, question.detached};
        };
    }
    [[nodiscard]] std::string Request(const std::string& members = "") const {
        return R"({"SignFile": ")" + file_.string() + '"' + members + "}";
    }
    static bool Run(const std::string& request) {
        return signing::SignByRequest(platform::ToWide(request).c_str(), HearJson, kContext);
    }
    static std::string Member(const char16_t* key) {
        toolkit::CkJsonObjectW json;
        EXPECT_TRUE(json.Load(platform::ToWide(heard.back()).c_str())) << heard.back();
        const auto* text = json.StringOf(key);
        return text != nullptr ? platform::ToUtf8(text) : "<none>";
    }
};

TEST_F(SignRequestTest, LeavesTheFormToThePersonOnlyInOtherModes) {
    struct Case {
        const char *name, *mode;
        bool detached, boxShown;
    };
    for (const auto& [name, mode, detached, boxShown] :
         {Case{"a.txt", "0", true, false}, Case{"a.txt", "1", false, false}, Case{"a.txt", "2", false, true},
          Case{"a.p7m", "0", false, false}, Case{"a.p7s", "2", false, false}, Case{"a.P7M", "0", true, false},
          // Any value has a number.
          Case{"a.txt", "\"1\"", false, false}, Case{"a.txt", "true", true, false}, Case{"a.txt", "null", true, false},
          Case{"a.txt", "{}", true, false}, Case{"a.txt", "\"x\"", true, false}, Case{"a.txt", "1.9", false, false},
          Case{"a.txt", "-1", false, true}, Case{"a.txt", "99999999999999999999", false, true}}) {
        SCOPED_TRACE(std::string(name) + mode);
        file_ = profile_.Write(name, "content");
        ASSERT_TRUE(Run(Request(std::string(R"(, "SignMode": )") + mode)));
        EXPECT_EQ(script_.signAsked.back().detached, detached);
        EXPECT_EQ(script_.signAsked.back().showDetachedBox, boxShown);
        EXPECT_EQ(Member(u"ResultFile"), file_.string() + (detached ? ".p7s" : ".p7m"));
    }
}

TEST_F(SignRequestTest, AnswersWithTheResultInTheFolderThatWasNamed) {
    ASSERT_TRUE(Run(Request()));
    EXPECT_EQ(Member(u"ResultFile"), file_.string() + ".p7s");
    const auto folder = profile_.Folder() / "made", result = folder / "договор.pdf.p7m";
    ASSERT_TRUE(Run(Request(R"(, "SignMode": 1, "ResultFolder": ")" + folder.string() + '"')));
    EXPECT_EQ(heard.size(), 2u);
    EXPECT_EQ(heard[1], "{\r\n  \"SignFile\": \"" + file_.string() + "\",\r\n  \"ResultFile\": \"" + result.string() +
                            "\",\r\n  \"SignMode\": 1\r\n}\r\n");
    EXPECT_TRUE(fs::exists(result));
}

TEST_F(SignRequestTest, OffersWhatTheFilterLetsThroughFromEverySourceAgain) {
    const auto thumbprint = pki_.signer.Thumbprint();
    ASSERT_TRUE(Run(Request(R"(, "StoreWindows": "MY", "ThumbprintInclude": [")" + thumbprint + R"("])")));
    EXPECT_EQ(script_.signAsked.back().certificates.size(), 2u);
    EXPECT_FALSE(Run(Request(R"(, "ThumbprintExclude": [")" + thumbprint + R"("])")));
    EXPECT_TRUE(script_.signAsked.back().certificates.empty());
    EXPECT_EQ(heard.size(), 1u) << "who cancels gives no answer";
    ASSERT_TRUE(Run(Request(R"(, "TSA": [{"title": "Една", "url": "http://127.0.0.1:9/"}])")));
    ASSERT_EQ(script_.signAsked.back().authorities.size(), 1u);
    EXPECT_EQ(script_.signAsked.back().authorities[0].title, u"Една");
}

TEST_F(SignRequestTest, TellsEachFailureInItsOwnWay) {
    EXPECT_FALSE(signing::SignByRequest(u"", HearJson, 0));
    EXPECT_TRUE(heard.empty());
    file_ = profile_.Folder() / "missing";
    EXPECT_TRUE(Run(Request())) << "the engine ran";
    EXPECT_EQ(Member(u"ErrorMessage"), "Грешка при изпълнение на SignFile.");
    EXPECT_EQ(Member(u"ResultFile"), "");
    const auto garbage = profile_.Write("garbage.pfx", "no keys").string();
    EXPECT_FALSE(Run(Request(R"(, "StoreFilename": ")" + garbage + R"(", "StorePassword": "x")")));
    EXPECT_EQ(Member(u"ErrorMessage"), "Invalid password for " + garbage);
    script_.decide = [](const auto&) -> std::optional<ui::SignDecision> { throw ui::Unavailable("няма екран"); };
    EXPECT_FALSE(Run(Request()));
    EXPECT_EQ(Member(u"ErrorMessage"), "няма екран");
}

TEST_F(SignRequestTest, OlderFormsGiveThePathInTheirBuffer) {
    std::u16string buffer(4096, u'?');
    const auto sign = [&](const char16_t* file, int mode, const char16_t* thumbprints, bool wantsResult) {
        return signing::SignFileByArguments(signing::SignByRequest, file, mode, wantsResult ? buffer.data() : nullptr,
                                            thumbprints, u"  ignored ");
    };
    const auto file = file_.u16string();
    EXPECT_TRUE(sign(file.c_str(), 1, nullptr, true));
    EXPECT_EQ(std::u16string(buffer.c_str()), file + u".p7m");
    EXPECT_TRUE(sign(file.c_str(), 0, u"", false));
    EXPECT_FALSE(sign(file.c_str(), 0, u"AA;;BB;", false));
    EXPECT_TRUE(script_.signAsked.back().certificates.empty()) << "no thumbprint of the list is there";
    for (const auto* none : {static_cast<const char16_t*>(nullptr), u" \t\r\n", u"/no/such/file"})
        EXPECT_FALSE(sign(none, 1, nullptr, true));
    script_.decide = [&](const ui::SignQuestion& question) -> std::optional<ui::SignDecision> {
        fs::remove(file_);
        return ui::SignDecision{question.certificates[0].Context(), std::nullopt, false};
    };
    EXPECT_TRUE(sign(file.c_str(), 1, nullptr, true));
    EXPECT_EQ(buffer[0], 0) << "the empty text tells the failure";
}

TEST_F(SignRequestTest, TheLaunchersSidePutsTheAnswerInThePlaceOfTheRequest) {
    const auto relay = profile_.Write("session with blanks/out.txt", Request(R"(, "SignMode": 1)"));
    signing::AnswerRelayedRequest(relay.u16string().c_str());
    EXPECT_THAT(ReadFile(relay), HasSubstr(".p7m"));
    profile_.Write(relay, Request());
    script_.decide = nullptr;
    signing::AnswerRelayedRequest(relay.u16string().c_str());
    EXPECT_EQ(ReadFile(relay), "") << "who cancels leaves nothing";
    EXPECT_TRUE(script_.shown.empty());
    signing::AnswerRelayedRequest(u"/no/such/file");
    EXPECT_THAT(script_.Texts(), ElementsAre("Грешни параметри за подписване"));

    constexpr std::uintmax_t kMoreThanARequest = (256U << 20) + 1;
    fs::resize_file(relay, kMoreThanARequest);
    EXPECT_THROW(signing::AnswerRelayedRequest(relay.u16string().c_str()), std::runtime_error);
    EXPECT_EQ(fs::file_size(relay), kMoreThanARequest) << "what cannot be read is somebody's file";
}

}  // namespace

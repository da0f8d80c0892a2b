#include "src/signing/SignEngine.h"

#include "src/settings/Settings.h"
#include "tests/src/Person.h"
#include "tests/support/ChainWorld.h"
#include "tests/support/Process.h"
#include "tests/support/TsaServer.h"
#include "units/Registry.h"

namespace {

namespace fs = std::filesystem;
using namespace tests;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;

class SignEngineTest : public PersonTest {
  protected:
    SignEngineTest() { pki_.Install(profile_); }
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

    const StandardPki pki_;
    fs::path file_ = profile_.Write("documents/report.pdf", "The words that count.\n");
    std::u16string result_ = u"untouched";
};

TEST_F(SignEngineTest, LeavesBothFormsSideBySideUnderTheInputsWholeName) {
    profile_.Write("documents/report.pdf.p7m", "old");  // replaced without a question
    ASSERT_TRUE(Sign(false)) << Log();
    EXPECT_EQ(result_, file_.u16string() + u".p7m");
    EXPECT_THAT(AcceptedStructure(false), HasSubstr("signingTime"));
    ASSERT_TRUE(Sign(true)) << Log();
    EXPECT_EQ(result_, file_.u16string() + u".p7s");
    EXPECT_THAT(AcceptedStructure(true), HasSubstr("sha256WithRSAEncryption"));
    EXPECT_TRUE(fs::exists(file_.string() + ".p7m"));
    EXPECT_EQ(ReadFile(file_), "The words that count.\n");
    for (const auto* name : {"report", "report.p7m", "Договор №5.docx", "a.b.c"}) {
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

}  // namespace

#include "src/signing/SignEngine.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "platform/Text.h"
#include "src/Norvik.h"
#include "src/settings/Settings.h"
#include "tests/support/Pki.h"
#include "tests/support/Process.h"
#include "tests/support/ScriptedInterface.h"
#include "tests/support/TsaServer.h"
#include "units/Registry.h"

namespace {

namespace fs = std::filesystem;
using testing::ElementsAre;
using testing::HasSubstr;

constexpr char kFailed[] = "Грешка при подписване на файл!\nЗа повече информация може да погледнете log файла.";
constexpr char kRevoked[] = "Не може да подпишете с прекратен сертификат.";

class SignEngineTest : public testing::Test {
  protected:
    SignEngineTest() {
        pki_.Install(profile_);
        CNorvikApp::Start(std::make_unique<tests::ScriptedInterface>(script_));
        file_ = profile_.Write("documents/report.pdf", "The words that count.\n");
    }
    ~SignEngineTest() override { CNorvikApp::Stop(); }

    bool Sign(bool detached, const settings::TsaRecord* authority = nullptr, const fs::path& folder = {}) {
        return signing::SignEngine(file_.u16string(), Context(pki_.signer), authority, detached, result_,
                                   folder.u16string());
    }
    static platform::CertificateContext Context(const tests::Certificate& certificate) {
        return platform::CertCreateCertificateContext(certificate.Der());
    }
    [[nodiscard]] std::string Log() const {
        const auto log = profile_.Folder() / "tmp/Norvik/Norvik.log";
        return fs::exists(log) ? tests::ReadFile(log) : "";
    }
    // What openssl prints of the message; empty if it does not accept it.
    [[nodiscard]] std::string AcceptedStructure(const fs::path& signature, bool detached) const {
        const auto root = profile_.Write("root.pem", pki_.root.Pem());
        std::vector<std::string> verify = {"openssl", "cms",     "-verify", "-binary", "-inform", "DER",
                                           "-in",     signature, "-CAfile", root,      "-out",    "/dev/stdout"};
        if (detached) verify.insert(verify.end(), {"-content", file_});
        const auto verdict = tests::RunProgram(verify);
        if (verdict.status != 0 || verdict.output != tests::ReadFile(file_)) return "";
        return tests::RunProgram({"openssl", "cms", "-cmsout", "-print", "-inform", "DER", "-in", signature}).output;
    }

    tests::Profile profile_;
    tests::StandardPki pki_;
    tests::Script script_;
    fs::path file_;
    std::u16string result_ = u"untouched";
};

TEST_F(SignEngineTest, LeavesBothFormsSideBySideUnderTheInputsWholeName) {
    profile_.Write("documents/report.pdf.p7m", "old");  // replaced without a question
    ASSERT_TRUE(Sign(false)) << Log();
    EXPECT_EQ(result_, file_.u16string() + u".p7m");
    ASSERT_TRUE(Sign(true)) << Log();
    EXPECT_EQ(result_, file_.u16string() + u".p7s");
    EXPECT_THAT(AcceptedStructure(file_.string() + ".p7m", false), HasSubstr("signingTime"));
    EXPECT_THAT(AcceptedStructure(file_.string() + ".p7s", true), HasSubstr("sha256WithRSAEncryption"));
    EXPECT_EQ(tests::ReadFile(file_), "The words that count.\n");
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

TEST_F(SignEngineTest, TellsWhatIsMissing) {
    file_ = profile_.Folder() / "missing.txt";
    EXPECT_FALSE(Sign(false));
    EXPECT_THAT(Log(), HasSubstr("[info] Missing file for signing " + file_.string()));
    file_ = profile_.Write("there.txt", "content");
    const auto stranger = tests::Issue({.subject = {{"CN", "In no store"}}});
    EXPECT_FALSE(signing::SignEngine(file_.u16string(), Context(stranger), nullptr, false, result_, u""));
    EXPECT_THAT(script_.Texts(), ElementsAre("Файлът за подписване не съществува!!!", "Няма намерен сертификат!"));
    EXPECT_EQ(result_, u"untouched");
}

TEST_F(SignEngineTest, WarnsOfARevokedCertificateAndSignsAllTheSame) {
    tests::InstallCrl(profile_, "CA", tests::MakeCrl(pki_.ca, {.revoked = {{pki_.signer.Serial(), 1'700'000'000}}}));
    EXPECT_TRUE(Sign(false));
    EXPECT_THAT(script_.Texts(), ElementsAre(kRevoked));
    EXPECT_TRUE(fs::exists(file_.string() + ".p7m"));
}

TEST_F(SignEngineTest, TakesSha1OnlyWhereTheSettingSaysItExactly) {
    const std::pair<const char16_t*, const char*> cases[] = {
        {u"SHA1", "digestAlgorithm: \n          algorithm: sha1 "},
        {u"sha1", "digestAlgorithm: \n          algorithm: sha256 "},
        {u"md5", "digestAlgorithm: \n          algorithm: sha256 "}};
    for (const auto& [setting, digest] : cases) {
        CRegistry registry;
        ASSERT_TRUE(registry.Open(settings::kVerificationKey, true));
        ASSERT_TRUE(registry.WriteString(u"HashAlg", setting));
        ASSERT_TRUE(Sign(false));
        EXPECT_THAT(AcceptedStructure(result_, false), HasSubstr(digest)) << platform::ToUtf8(setting);
    }
}

TEST_F(SignEngineTest, WritesNothingWithoutTheTimestampThatWasAskedFor) {
    tests::TsaServer tsa(pki_.tsa, {pki_.ca}, {.reply = tests::TsaBehaviour::Reply::rejected});
    const settings::TsaRecord authority{
        .url = platform::ToWide(tsa.Url()), .title = {}, .username = {}, .password = {}};
    EXPECT_FALSE(Sign(false, &authority));
    EXPECT_THAT(script_.Texts(), ElementsAre(kFailed));
    EXPECT_THAT(Log(), HasSubstr("Timestamp server reply does not indicate success."));
    EXPECT_FALSE(fs::exists(file_.string() + ".p7m"));
    EXPECT_EQ(result_, u"untouched");
}

TEST_F(SignEngineTest, PutsTheTimestampInPlaceOfTheSigningTimeAndSendsWholeCredentialsOnly) {
    const tests::TsaServer tsa(pki_.tsa, {pki_.ca, pki_.root});
    const std::pair<std::u16string, std::u16string> halves[] = {{u"иван", u""}, {u"", u"тайна"}, {u"иван", u"тайна"}};
    for (const auto& [user, password] : halves) {
        const settings::TsaRecord authority{
            .url = platform::ToWide(tsa.Url()), .title = {}, .username = user, .password = password};
        const bool detached = user.empty();
        ASSERT_TRUE(Sign(detached, &authority)) << Log();
        const auto structure = AcceptedStructure(result_, detached);
        EXPECT_THAT(structure, HasSubstr("id-smime-aa-timeStampToken"));
        EXPECT_THAT(structure.substr(structure.find("signerInfos")), testing::Not(HasSubstr("object: signingTime")));
    }
    const auto requests = tsa.Requests();
    ASSERT_EQ(requests.size(), 3u);
    EXPECT_EQ(requests[0].Credentials(), std::nullopt);
    EXPECT_EQ(requests[1].Credentials(), std::nullopt);
    EXPECT_EQ(requests[2].Credentials(), "иван:тайна");
    EXPECT_THAT(Log(), testing::Not(HasSubstr("тайна")));
}

}  // namespace

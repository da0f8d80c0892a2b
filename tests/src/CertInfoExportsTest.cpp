#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "norvik/norvik.h"
#include "platform/Text.h"
#include "tests/src/LoadedLibrary.h"
#include "tests/support/FakeToken.h"
#include "tests/support/Pki.h"
#include "tests/support/SoftToken.h"
#include "toolkit/CkJsonArrayW.h"
#include "toolkit/CkJsonObjectW.h"

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::StartsWith;
using tests::Certificate;
using tests::Issue;
using tests::kDay;
using tests::KeyType;
using tests::TestKey;

constexpr std::uint64_t kContext = 0xFEDC'BA98'7654'3210;

struct Told {
    std::uint64_t context;
    bool error, flag;
    std::vector<std::string> texts;  // message, name, from, to, thumbprint, issuer; "(null)" for none
};
std::vector<Told> told;
std::vector<std::string> answers;

void HearJson(std::uint64_t context, const char16_t* json) {
    EXPECT_EQ(context, kContext);
    answers.push_back(platform::ToUtf8(json));
}
void HearRecordFlag(std::uint64_t context, bool error, const char16_t* message, const char16_t* name,
                    const char16_t* from, const char16_t* to, const char16_t* thumbprint, const char16_t* issuer,
                    bool flag) {
    Told record{context, error, flag, {}};
    for (const auto* text : {message, name, from, to, thumbprint, issuer})
        record.texts.push_back(text == nullptr ? "(null)" : platform::ToUtf8(text));
    told.push_back(record);
}
void HearRecord(std::uint64_t context, bool error, const char16_t* message, const char16_t* name, const char16_t* from,
                const char16_t* to, const char16_t* thumbprint, const char16_t* issuer) {
    HearRecordFlag(context, error, message, name, from, to, thumbprint, issuer, false);
}

// The library as an application loads it, with a person behind its interface.
class CertInfoExports : public testing::Test {
  protected:
    CertInfoExports() {
        told.clear();
        answers.clear();
    }

    bool Json(const std::string& request) {
        return library_.Export<decltype(NorvikCertInfoJson)>("NorvikCertInfoJson")(platform::ToWide(request).c_str(),
                                                                                   HearJson, kContext);
    }
    bool Short(const char16_t* file) {
        return library_.Export<decltype(NorvikCertInfo)>("NorvikCertInfo")(file, HearRecord, kContext);
    }
    bool Long(const char16_t* file) {
        return library_.Export<decltype(NorvikCertInfo2)>("NorvikCertInfo2")(file, HearRecordFlag, kContext);
    }
    // The lines of a key listing.
    std::vector<std::string> Keys(const char16_t* provider) {
        told.clear();
        library_.Export<decltype(NorvikCertStoreInfo)>("NorvikCertStoreInfo")(provider, HearRecord, kContext);
        std::vector<std::string> lines;
        for (const auto& line : told) {
            EXPECT_TRUE(line.error);
            EXPECT_EQ(line.context, kContext);
            EXPECT_THAT(std::vector(line.texts.begin() + 1, line.texts.end()), testing::Each("(null)"));
            lines.push_back(line.texts[0]);
        }
        return lines;
    }
    std::u16string Write(const char* name, const std::string& content) {
        return profile_.Write(name, content).u16string();
    }

    tests::Profile profile_;
    tests::Script script_;
    const tests::LoadedLibrary library_{script_};
    const std::time_t now_ = std::time(nullptr);
    const Certificate ca_ = Issue({.subject = {{"CN", "Издател"}}, .key = TestKey(KeyType::p256), .ca = true});
    const Certificate ivan_ = Issue({.subject = {{"CN", "Иван"}}, .key = TestKey(KeyType::p256, 1)}, ca_);
    const Certificate expired_ = Issue({.notBefore = now_ - 9 * kDay, .notAfter = now_ - kDay}, ca_);
};

TEST_F(CertInfoExports, ReportAFileAsAnArrayOfTheValidOnes) {
    const auto file = Write("three.pem", ivan_.Pem() + expired_.Pem() + ca_.Pem());
    EXPECT_TRUE(Json(R"({"Filename":")" + platform::ToUtf8(file) + "\"}"));
    ASSERT_EQ(answers.size(), 1U);
    EXPECT_THAT(answers[0], StartsWith("[\r\n  {\r\n    \"Serial\": \"" + ivan_.SerialHex()));
    toolkit::CkJsonArrayW records;
    ASSERT_TRUE(records.Load(platform::ToWide(answers[0]).c_str()));
    ASSERT_EQ(records.Size(), 2);
    EXPECT_EQ(records.ObjectAt(0)->StringOf(u"Thumbprint"), platform::ToWide(ivan_.Thumbprint()));
    EXPECT_EQ(records.ObjectAt(1)->StringOf(u"Thumbprint"), platform::ToWide(ca_.Thumbprint()));
}

TEST_F(CertInfoExports, TellFailuresAsOneObjectInTheArray) {
    const auto object = [](const std::string& message) {
        return "[\r\n  {\r\n    \"Error\": true,\r\n    \"ErrorMessage\": \"" + message + "\"\r\n  }\r\n]\r\n";
    };
    EXPECT_FALSE(Json("{}"));
    EXPECT_FALSE(Json(R"({"Store":"Nobody"})"));
    EXPECT_THAT(answers, ElementsAre(object("CertInfoJson: Invalid input parameters!!!"),
                                     object("Cannot open certificate store.\\n")));
}

TEST_F(CertInfoExports, TellAWrongPasswordOnOneLine) {
    const auto pfx =
        profile_.Write("a.pfx", platform::AsText(tests::MakePfx({.certificates = {ivan_}, .password = "тайна"})));
    EXPECT_FALSE(Json(R"({"Filename":")" + pfx.string() + R"(","Password":"грешна"})"));
    EXPECT_EQ(answers.back(), R"([{"Error":true,"ErrorMessage":"Invalid password for )" + pfx.string() + "\"}]");
    EXPECT_TRUE(Json(R"({"Filename":")" + pfx.string() + R"(","Password":"тайна"})"));
    EXPECT_THAT(answers.back(), HasSubstr(ivan_.Thumbprint()));
    EXPECT_TRUE(script_.questions.empty());

    EXPECT_FALSE(Short(pfx.u16string().c_str()));
    EXPECT_EQ(script_.questions.size(), 1U) << "a request without a password asks for it";
    ASSERT_EQ(told.size(), 1U);
    EXPECT_EQ(told[0].texts[0], "Cannot open file.\n") << "cancelled";
    script_.texts = {"грешна"};
    EXPECT_FALSE(Long(pfx.u16string().c_str()));
    EXPECT_EQ(told[1].texts[0], "Invalid password for " + pfx.string());
    EXPECT_EQ(told.size(), 2U);
}

TEST_F(CertInfoExports, CallBackForEachCertificateOfAFile) {
    profile_.Set("TZ", "UTC");
    const Certificate one = Issue({.subject = {{"CN", "Едно"}},
                                   .notBefore = 1'709'280'900,  // 2024-03-01
                                   .notAfter = 4'102'444'800,   // 2100-01-01
                                   .key = TestKey(KeyType::p256, 2)},
                                  ca_);
    const auto file = Write("two.pem", one.Pem() + expired_.Pem() + ivan_.Pem());
    EXPECT_TRUE(Long(file.c_str()));
    ASSERT_EQ(told.size(), 2U);
    EXPECT_THAT(told[0].texts,
                ElementsAre("(null)", "Едно", platform::ToUtf8(platform::GetDateFormatW(2024, 3, 1)),
                            platform::ToUtf8(platform::GetDateFormatW(2100, 1, 1)), one.Thumbprint(), "Издател"));
    EXPECT_TRUE(told[0].flag);
    EXPECT_FALSE(told[0].error);
    EXPECT_EQ(told[0].context, kContext);
    const auto longForm = told;
    told.clear();
    EXPECT_TRUE(Short(file.c_str()));
    ASSERT_EQ(told.size(), 2U);
    EXPECT_EQ(told[0].texts, longForm[0].texts);
    EXPECT_EQ(told[1].texts, longForm[1].texts);
}

// Both are the reading of a local clock where the other side is UTC, as callers have always had them.
TEST_F(CertInfoExports, MoveShortDatesTwiceAndCompareTheLocalClock) {
    profile_.Set("TZ", "AAA-9");
    const Certificate fresh = Issue({.notBefore = now_ - 3600,
                                     .notAfter = 4'102'434'000,  // 2099-12-31 21:00 UTC, 2100-01-01 06:00 there
                                     .key = TestKey(KeyType::p256)});
    EXPECT_TRUE(Long(Write("fresh.pem", fresh.Pem()).c_str()));
    ASSERT_EQ(told.size(), 1U);
    EXPECT_FALSE(told[0].flag);
    EXPECT_EQ(told[0].texts[3], platform::ToUtf8(platform::GetDateFormatW(2100, 1, 1)));
    told.clear();
    const Certificate evening = Issue({.notAfter = 4'102'390'800,  // 2099-12-31 09:00 UTC, 18:00 there
                                       .key = TestKey(KeyType::p256)});
    EXPECT_TRUE(Long(Write("evening.pem", evening.Pem()).c_str()));
    ASSERT_EQ(told.size(), 1U);
    EXPECT_EQ(told[0].texts[3], platform::ToUtf8(platform::GetDateFormatW(2100, 1, 1)));
}

TEST_F(CertInfoExports, TellFailuresOfAFileOnceWithTheMessageAlone) {
    const auto expectOne = [](const std::string& message) {
        ASSERT_EQ(told.size(), 1U);
        EXPECT_TRUE(told[0].error);
        EXPECT_FALSE(told[0].flag);
        EXPECT_THAT(told[0].texts[0], StartsWith(message));
        EXPECT_THAT(std::vector(told[0].texts.begin() + 1, told[0].texts.end()), testing::Each("(null)"));
        told.clear();
    };
    for (const char16_t* blank : {static_cast<const char16_t*>(nullptr), u"", u" \t\r\n\v\f"}) {
        EXPECT_FALSE(Short(blank));
        expectOne("CertInfo: Invalid input parameters!!!");
        EXPECT_FALSE(Long(blank));
        expectOne("CertInfo2: Invalid input parameters!!!");
    }
    EXPECT_FALSE(Short(u"/nonexistent"));
    expectOne("Cannot open file.\nMsg: ");
    EXPECT_FALSE(Long(Write("garbage.cer", "garbage").c_str()));
    expectOne("Cannot open file.\nMsg: ");
    EXPECT_FALSE(Long(u"/tmp/\xD800"));
    ASSERT_EQ(told.size(), 1U);
    EXPECT_TRUE(told[0].error);
    told.clear();
    EXPECT_TRUE(Short(Write("expired.pem", expired_.Pem()).c_str()));
    EXPECT_TRUE(told.empty()) << "nothing valid is nothing to tell";
}

TEST_F(CertInfoExports, ListTheSoftwareKeysLineByLineAndInTheLog) {
    tests::UseNoPkcs11Modules(profile_);
    EXPECT_THAT(Keys(u""), ElementsAre("No keys in the provider!"));
    EXPECT_THAT(Keys(u"Няма такъв"), ElementsAre("NCryptOpenStorageProvider could not open storage!"));
    tests::InstallCertificate(profile_, "MY", ivan_, true);
    tests::InstallCertificate(profile_, "MY", ca_);
    const auto line = "Ok: NCryptOpenKey: 0x0, Key Name: " + ivan_.Thumbprint() + ", AlgId: ECDSACommonName: Иван";
    EXPECT_THAT(Keys(u""), ElementsAre("ok: NCryptEnumKeys : 0x0", line));
    EXPECT_THAT(Keys(nullptr), ElementsAre("ok: NCryptEnumKeys : 0x0", line));
    EXPECT_THAT(tests::ReadFile(profile_.Folder() / "tmp/Norvik/Norvik.log"), HasSubstr("[info] " + line + "\n"));
}

TEST_F(CertInfoExports, ListTheKeysOfATokenWithoutAPin) {
    if (!tests::SoftToken::Available()) GTEST_SKIP() << "SoftHSM2 or pkcs11-tool is not installed";
    tests::SoftToken token(profile_, "Карта");
    EXPECT_THAT(Keys(u"Карта"), ElementsAre("No keys in the provider!"));
    const Certificate petar = Issue({.subject = {{"CN", "Петър"}}, .key = TestKey(KeyType::rsa2048)}, ca_);
    token.Put(petar, "01");
    for (const auto* provider : {u"Карта", u"softhsm2"}) {
        const auto lines = Keys(provider);
        ASSERT_EQ(lines.size(), 2U);
        EXPECT_EQ(lines[0], "ok: NCryptEnumKeys : 0x0");
        EXPECT_EQ(lines[1], "Ok: NCryptOpenKey: 0x0, Key Name: key01, AlgId: RSACommonName: Петър");
    }
    EXPECT_TRUE(script_.asked.empty());
}

}  // namespace

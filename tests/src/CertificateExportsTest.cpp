// The exports on certificates as an application calls them.

#include "tests/src/Exports.h"
#include "tests/src/Person.h"
#include "toolkit/CkJsonArrayW.h"
#include "toolkit/CkJsonObjectW.h"

namespace {

using namespace tests;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;

// Four texts with a guard behind each, so that one too long shows.
struct Buffers {
    static constexpr std::size_t kRoom = 300;
    std::vector<std::u16string> texts{4, std::u16string(kRoom + 1, u'#')};
    char16_t* operator[](std::size_t i) { return texts[i].data(); }
    std::string Text(std::size_t i) { return platform::ToUtf8(texts[i].c_str()); }
    [[nodiscard]] bool GuardsStand() const {
        return std::ranges::all_of(texts, [](const auto& text) { return text[kRoom] == u'#'; });
    }
    friend bool operator==(const Buffers&, const Buffers&) = default;
};

class CertificateExports : public PersonTest {
  protected:
    CertificateExports() { heard.clear(); }
    bool Describe(const std::string& request) {
        return EXPORT(NorvikCertInfoJson)(platform::ToWide(request).c_str(), HearJson, kContext);
    }
    bool Short(const char16_t* file) { return EXPORT(NorvikCertInfo)(file, HearRecord, kContext); }
    bool Long(const char16_t* file) { return EXPORT(NorvikCertInfo2)(file, HearRecordFlag, kContext); }
    bool Select(const std::string& request) {
        return EXPORT(NorvikSelectCertificateJson)(platform::ToWide(request).c_str(), HearJson, kContext);
    }
    bool FromStore(const char16_t* store) { return EXPORT(NorvikSelectCertificateCB)(store, HearRecordFlag, kContext); }
    bool FromFile(const char16_t* file, int dialog) {
        return EXPORT(NorvikSelectCertificateFromFileCB)(file, HearRecordFlag, dialog, kContext);
    }
    int IntoBuffers(const char16_t* file, Buffers& to, bool* flag) {
        return EXPORT(NorvikSelectCertificateFromFile)(file, to[0], to[1], to[2], to[3], flag, 0);
    }
    bool FromMy(Buffers& to) { return EXPORT(NorvikSelectCertificate)(to[0], to[1], to[2], to[3]); }
    // The lines of a key listing, all of which come as errors.
    std::vector<std::string> Keys(const char16_t* provider) {
        heard.clear();
        EXPORT(NorvikCertStoreInfo)(provider, HearRecord, kContext);
        return heard;
    }
    void ChooseFirst() {
        script_.choose = [](const ui::CertificateQuestion& question) {
            return platform::CertEnumCertificatesInStore(question.certificates.store).at(0);
        };
    }
    std::size_t OfferedLast() const { return script_.certificatesAsked.back().certificates.GetCertificateCount(); }
    std::u16string Write(const char* name, std::string_view content) {
        return profile_.Write(name, content).u16string();
    }
    static std::string RequestFor(const std::u16string& file, const std::string& members = "") {
        return R"({"Filename":")" + platform::ToUtf8(file) + '"' + members + "}";
    }
    static std::string Date(std::uint16_t year, std::uint16_t month, std::uint16_t day) {
        return platform::ToUtf8(platform::GetDateFormatW(year, month, day));
    }

    const LoadedLibrary library_{script_};
    const std::time_t now_ = std::time(nullptr);
    const Certificate ca_ = Issue({.subject = {{"CN", "Издател"}}, .key = TestKey(KeyType::p256), .ca = true});
    const Certificate ivan_ = Issue({.subject = {{"CN", "Иван"}}, .key = TestKey(KeyType::p256, 1)}, ca_);
    const Certificate expired_ = Issue({.notBefore = now_ - 9 * kDay, .notAfter = now_ - kDay}, ca_);
};

TEST_F(CertificateExports, TellOfTheValidCertificatesOfAFileInTheFormOfTheFunction) {
    profile_.Set("TZ", "UTC");
    const Certificate one = Issue({.subject = {{"CN", "Едно"}},
                                   .notBefore = 1'709'280'900,  // 2024-03-01
                                   .notAfter = 4'102'444'800,   // 2100-01-01
                                   .key = TestKey(KeyType::p256, 2)},
                                  ca_);
    const auto file = Write("three.pem", one.Pem() + expired_.Pem() + ivan_.Pem());
    EXPECT_TRUE(Long(file.c_str()));
    EXPECT_TRUE(Short(file.c_str()));
    EXPECT_TRUE(Short(Write("expired.pem", expired_.Pem()).c_str())) << "nothing valid is nothing to tell";
    EXPECT_TRUE(Describe(RequestFor(file)));
    EXPECT_FALSE(Describe(R"({"Store":"Nobody"})"));
    const auto told = "Едно|" + Date(2024, 3, 1) + "|" + Date(2100, 1, 1) + "|" + one.Thumbprint() + "|Издател";
    EXPECT_THAT(heard, ElementsAre(told + "|true", StartsWith("Иван|"), told, StartsWith("Иван|"),
                                   StartsWith("[\r\n  {\r\n    \"Serial\": \"" + one.SerialHex()),
                                   "[\r\n  {\r\n    \"Error\": true,\r\n    \"ErrorMessage\": "
                                   "\"Cannot open certificate store.\\n\"\r\n  }\r\n]\r\n"));
    toolkit::CkJsonArrayW records;
    ASSERT_TRUE(records.Load(platform::ToWide(heard.at(4)).c_str()));
    ASSERT_EQ(records.Size(), 2);
    EXPECT_EQ(records.ObjectAt(1)->StringOf(u"Thumbprint"), platform::ToWide(ivan_.Thumbprint()));
}

// Both are the reading of a local clock where the other side is UTC, as callers have always had them.
TEST_F(CertificateExports, MoveShortDatesTwiceAndCompareTheLocalClock) {
    profile_.Set("TZ", "AAA-9");
    for (const auto& [notBefore, notAfter, flag] :
         {std::tuple{now_ - 3600, std::int64_t{4'102'434'000}, "|false"},    // 2099-12-31 21:00 UTC, 06:00 there
          std::tuple{now_ - kDay, std::int64_t{4'102'390'800}, "|true"}}) {  // 2099-12-31 09:00 UTC, 18:00 there
        const auto one = Issue({.notBefore = notBefore, .notAfter = notAfter, .key = TestKey(KeyType::p256)});
        EXPECT_TRUE(Long(Write("one.pem", one.Pem()).c_str()));
        EXPECT_THAT(heard.back(), HasSubstr("|" + Date(2100, 1, 1) + "|"));
        EXPECT_THAT(heard.back(), testing::EndsWith(flag));
    }
}

TEST_F(CertificateExports, TellEachFailureOfAFileOnceInTheFormOfTheFunction) {
    const auto pfx = Write("a.pfx", platform::AsText(MakePfx({.certificates = {ivan_}, .password = "тайна"})));
    const auto invalid = "Invalid password for " + platform::ToUtf8(pfx);
    for (const char16_t* blank : {static_cast<const char16_t*>(nullptr), u"", u" \t\r\n\v\f"})
        EXPECT_FALSE(Short(blank) || Long(blank));
    EXPECT_FALSE(Short(u"/nonexistent"));
    EXPECT_FALSE(Long(Write("garbage.cer", "garbage").c_str()));
    EXPECT_FALSE(Short(u"/tmp/\xD800"));
    EXPECT_FALSE(Describe(RequestFor(pfx, R"(,"Password":"грешна")")));
    EXPECT_TRUE(script_.questions.empty());
    EXPECT_FALSE(Short(pfx.c_str()));
    EXPECT_EQ(script_.questions.size(), 1U) << "a request without a password asks for it";
    script_.texts = {"грешна", "грешна"};
    EXPECT_FALSE(Short(pfx.c_str()) || Long(pfx.c_str()));
    const auto shortBlank = "error|CertInfo: Invalid input parameters!!!",
               longBlank = "error|CertInfo2: Invalid input parameters!!!", unopened = "error|Cannot open file.\nMsg: ";
    EXPECT_THAT(heard, ElementsAre(shortBlank, longBlank, shortBlank, longBlank, shortBlank, longBlank,
                                   StartsWith(unopened), StartsWith(unopened), StartsWith("error|"),
                                   R"([{"Error":true,"ErrorMessage":")" + invalid + "\"}]", "error|Cannot open file.\n",
                                   "error|" + invalid, "error|" + invalid));
    EXPECT_TRUE(Describe(RequestFor(pfx, R"(,"Password":"тайна")")));
    EXPECT_THAT(heard.back(), HasSubstr(ivan_.Thumbprint()));
}

TEST_F(CertificateExports, ListTheSoftwareKeysLineByLineAndInTheLog) {
    EXPECT_THAT(Keys(u""), ElementsAre("error|No keys in the provider!"));
    EXPECT_THAT(Keys(u"Няма такъв"), ElementsAre("error|NCryptOpenStorageProvider could not open storage!"));
    InstallCertificate(profile_, "MY", ivan_, true);
    InstallCertificate(profile_, "MY", ca_);
    const auto line = "Ok: NCryptOpenKey: 0x0, Key Name: " + ivan_.Thumbprint() + ", AlgId: ECDSACommonName: Иван";
    for (const auto* provider : {u"", static_cast<const char16_t*>(nullptr)})
        EXPECT_THAT(Keys(provider), ElementsAre("error|ok: NCryptEnumKeys : 0x0", "error|" + line));
    EXPECT_THAT(Log(), HasSubstr("[info] " + line + "\n"));
}

TEST_F(CertificateExports, ListTheKeysOfATokenWithoutAPin) {
    if (!SoftToken::Available()) GTEST_SKIP() << "SoftHSM2 or pkcs11-tool is not installed";
    SoftToken token(profile_, "Карта");
    EXPECT_THAT(Keys(u"Карта"), ElementsAre("error|No keys in the provider!"));
    token.Put(Issue({.subject = {{"CN", "Петър"}}, .key = TestKey(KeyType::rsa2048)}, ca_), "01");
    for (const auto* provider : {u"Карта", u"softhsm2"})
        EXPECT_THAT(Keys(provider),
                    ElementsAre("error|ok: NCryptEnumKeys : 0x0",
                                "error|Ok: NCryptOpenKey: 0x0, Key Name: key01, AlgId: RSACommonName: Петър"));
    EXPECT_TRUE(script_.asked.empty());
}

TEST_F(CertificateExports, AskAlsoForASingleOneUnlessToldNotTo) {
    const auto file = Write("one.pem", ivan_.Pem());
    ChooseFirst();
    EXPECT_TRUE(Select(RequestFor(file)));
    EXPECT_THAT(heard.back(), StartsWith("{\r\n  \"Serial\": \"" + ivan_.SerialHex()));
    ASSERT_EQ(script_.certificatesAsked.size(), 1U);
    EXPECT_EQ(script_.certificatesAsked[0].title, u"Избиране на сертификат ...");
    EXPECT_TRUE(Select(RequestFor(file, R"(,"ShowDialogIfOne":false)")));
    EXPECT_EQ(script_.certificatesAsked.size(), 1U);
    EXPECT_EQ(heard.at(1), heard[0]);

    // None left, or several: a question, whatever was told.
    const auto two = Write("two.pem", ivan_.Pem() + ca_.Pem() + expired_.Pem());
    script_.choose = nullptr;
    EXPECT_FALSE(Select(RequestFor(two, R"(,"ShowDialogIfOne":false)")));
    EXPECT_EQ(OfferedLast(), 2U);
    EXPECT_FALSE(
        Select(RequestFor(file, R"(,"ShowDialogIfOne":false,"ThumbprintExclude":[")" + ivan_.Thumbprint() + "\"]")));
    EXPECT_EQ(OfferedLast(), 0U);
    EXPECT_EQ(heard.size(), 2U) << "a cancelled choice calls nobody";
}

TEST_F(CertificateExports, TellEachFailureOfAChoiceInItsOwnWords) {
    const auto object = [](const std::string& message) {
        return "{\r\n  \"Error\": true,\r\n  \"ErrorMessage\": \"" + message + "\"\r\n}\r\n";
    };
    const auto garbage = Write("garbage.PFX", "no PFX");
    const auto invalid = "Invalid password for " + platform::ToUtf8(garbage);
    for (const auto& request : {std::string(R"({"ShowDialogIfOne":false})"), std::string(R"({"Store":"Nobody"})"),
                                RequestFor(u"/nowhere/at/all.cer"), RequestFor(garbage)})
        EXPECT_FALSE(Select(request));
    EXPECT_TRUE(FromStore(u" \t")) << "true is failure here";
    EXPECT_FALSE(FromFile(u"\r\n", 1));
    EXPECT_TRUE(FromStore(u"Nobody"));
    EXPECT_FALSE(FromFile(garbage.c_str(), 1));
    EXPECT_THAT(heard,
                ElementsAre(object("CertInfoJson: Invalid input parameters!!!"),
                            object("Cannot open certificate store.\\n"), HasSubstr("\"Cannot open file.\\nMsg: "),
                            object(invalid), "error|SelectCertificateFromFileCB: Invalid input parameters.",
                            "error|SelectCertificateFromFileCB: Invalid input parameters!!!",
                            "error|Cannot open certificate store.\n", "error|" + invalid));
    EXPECT_TRUE(script_.certificatesAsked.empty());
    InstallCertificate(profile_, "MY", ivan_, true);
    script_.choose = [](const auto&) -> platform::CertificateContext { throw ui::Unavailable("няма екран"); };
    EXPECT_TRUE(FromStore(u"MY"));
    EXPECT_EQ(heard.back(), "error|няма екран");
}

TEST_F(CertificateExports, HandTheChoiceToTheCallback) {
    InstallCertificate(profile_, "MY", ivan_, true);
    EXPECT_TRUE(FromStore(u"MY")) << "cancelled";
    EXPECT_TRUE(heard.empty());
    ChooseFirst();
    EXPECT_FALSE(FromStore(u"MY"));
    EXPECT_TRUE(FromFile(Write("one.pem", ivan_.Pem()).c_str(), 0));
    EXPECT_EQ(script_.certificatesAsked.size(), 2U) << "a single one of a file is taken";
    const auto told = testing::MatchesRegex("Иван\\|20.*T.*\\|20.*T.*\\|" + ivan_.Thumbprint() + "\\|Издател\\|false");
    EXPECT_THAT(heard, ElementsAre(told, told)) << "the record's own dates, no short ones";
}

TEST_F(CertificateExports, FillBuffersAndNeverWriteBeyondThem) {
    InstallCertificate(profile_, "MY", ivan_, true);
    Buffers buffers;
    EXPECT_FALSE(FromMy(buffers)) << "cancelled";
    EXPECT_EQ(buffers, Buffers());
    ChooseFirst();
    EXPECT_TRUE(FromMy(buffers));
    EXPECT_EQ(buffers.Text(0), "Иван");
    EXPECT_EQ(buffers.Text(1), ivan_.Thumbprint());
    EXPECT_FALSE(buffers.Text(2).empty());
    EXPECT_THAT(buffers.Text(3), testing::Not(HasSubstr("T"))) << "a short date";

    for (const auto& [length, kept] : {std::pair{299U, true}, std::pair{300U, false}, std::pair{400U, false}}) {
        const std::string name(length, 'x');
        const auto long_ = Issue({.subject = {{"CN", name}}, .key = TestKey(KeyType::p256, 2)}, ca_);
        Buffers full;
        bool flag = true;
        EXPECT_EQ(IntoBuffers(Write("long.pem", long_.Pem()).c_str(), full, &flag), 1);
        EXPECT_EQ(full.Text(0), kept ? name : "") << length;
        EXPECT_EQ(full.Text(1), long_.Thumbprint());
        EXPECT_TRUE(full.GuardsStand()) << length;
        EXPECT_FALSE(flag);
    }
}

TEST_F(CertificateExports, AnswerWrongArgumentsOfTheBufferFormsByTheirResult) {
    Buffers buffers;
    bool flag = true;
    EXPECT_EQ(IntoBuffers(u" ", buffers, &flag), -1);
    EXPECT_EQ(IntoBuffers(nullptr, buffers, &flag), -1);
    EXPECT_EQ(IntoBuffers(u"a.cer", buffers, nullptr), -1);
    EXPECT_FALSE(EXPORT(NorvikSelectCertificate)(buffers[0], buffers[1], nullptr, buffers[3]));
    EXPECT_EQ(IntoBuffers(u"/nowhere/at/all.cer", buffers, &flag), 0);
    EXPECT_TRUE(script_.shown.empty());
    EXPECT_EQ(IntoBuffers(Write("garbage.p12", "no PFX").c_str(), buffers, &flag), 1);
    InstallCertificate(profile_, "MY", ivan_, true);
    script_.choose = [](const auto&) -> platform::CertificateContext { throw ui::Unavailable("няма екран"); };
    EXPECT_FALSE(FromMy(buffers));
    EXPECT_THAT(script_.Texts(), ElementsAre(StartsWith("Invalid password for "), "няма екран"));
    EXPECT_EQ(script_.shown[0].title, u"Грешка");
    EXPECT_EQ(buffers, Buffers());
    EXPECT_TRUE(flag);
}

TEST_F(CertificateExports, TryTheKeyOfAChosenCertificate) {
    const auto probe = EXPORT(NorvikCertSelectPrivate);
    probe();
    EXPECT_EQ(script_.certificatesAsked.size(), 1U) << "asked also where there is none";
    EXPECT_EQ(script_.certificatesAsked[0].title, u"Изберете сертификат ...");
    InstallCertificate(profile_, "MY", ivan_, true);
    InstallCertificate(profile_, "MY", expired_, true);
    ChooseFirst();
    probe();
    EXPECT_EQ(OfferedLast(), 1U);
    EXPECT_THAT(script_.Texts(), IsEmpty());
    script_.choose = [this](const auto&) { return platform::CertCreateCertificateContext(ca_.Der()); };
    probe();
    EXPECT_THAT(script_.Texts(), ElementsAre(HasSubstr("Error 0x8009200b"))) << "a certificate without a key";
}

TEST_F(CertificateExports, TryTheKeyOfACardWithItsPin) {
    if (!SoftToken::Available()) GTEST_SKIP() << "SoftHSM2 or pkcs11-tool is not installed";
    SoftToken token(profile_);
    token.Put(ivan_, "01");
    ChooseFirst();
    const auto probe = EXPORT(NorvikCertSelectPrivate);
    probe();
    script_.pins = {"000000", token.Pin()};
    probe();
    probe();
    EXPECT_THAT(script_.Texts(), ElementsAre(testing::AllOf(StartsWith("File - src/NorvikMain\nLine - 556\n"),
                                                            HasSubstr("Error 0x8010006e")),  // no PIN given
                                             HasSubstr("Error 0x8010006b")))
        << "then a wrong PIN, then the right one";
    EXPECT_EQ(script_.asked.size(), 3U);
}

}  // namespace

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>

#include "norvik/norvik.h"
#include "platform/Text.h"
#include "tests/src/LoadedLibrary.h"
#include "tests/support/FakeToken.h"
#include "tests/support/Pki.h"
#include "tests/support/SoftToken.h"
#include "toolkit/CkJsonObjectW.h"

namespace {

using testing::HasSubstr;
using testing::StartsWith;
using tests::Certificate;
using tests::Issue;
using tests::kDay;
using tests::KeyType;
using tests::TestKey;

constexpr std::uint64_t kContext = 0xFEDC'BA98'7654'3210;
std::vector<std::string> heard;  // a JSON answer, or "error|message" or "flag|name|thumbprint|issuer|from"

void HearJson(std::uint64_t context, const char16_t* json) {
    EXPECT_EQ(context, kContext);
    heard.push_back(platform::ToUtf8(json));
}
void HearRecord(std::uint64_t context, bool error, const char16_t* message, const char16_t* name, const char16_t* from,
                const char16_t* to, const char16_t* thumbprint, const char16_t* issuer, bool flag) {
    EXPECT_EQ(context, kContext);
    if (error) {
        for (const auto* text : {name, from, to, thumbprint, issuer})
            EXPECT_EQ(text, nullptr);
        heard.push_back("error|" + platform::ToUtf8(message));
        return;
    }
    EXPECT_EQ(message, nullptr);
    heard.push_back(std::string(flag ? "true" : "false") + "|" + platform::ToUtf8(name) + "|" +
                    platform::ToUtf8(thumbprint) + "|" + platform::ToUtf8(issuer) + "|" + platform::ToUtf8(from));
}

// With a guard behind each, so that a text too long shows.
struct Buffers {
    static constexpr std::size_t kRoom = 300;
    std::array<std::array<char16_t, kRoom + 1>, 4> texts{};
    Buffers() {
        for (auto& text : texts)
            text.fill(u'#');
    }
    char16_t* operator[](std::size_t i) { return texts[i].data(); }
    std::string Text(std::size_t i) { return platform::ToUtf8(std::u16string(texts[i].data())); }
    [[nodiscard]] bool Untouched() const { return *this == Buffers(); }
    [[nodiscard]] bool GuardsStand() const {
        return std::ranges::all_of(texts, [](const auto& text) { return text[kRoom] == u'#'; });
    }
    friend bool operator==(const Buffers&, const Buffers&) = default;
};

class SelectExports : public testing::Test {
  protected:
    SelectExports() {
        heard.clear();
        tests::UseNoPkcs11Modules(profile_);
    }

    bool Json(const std::string& request) {
        return library_.Export<decltype(NorvikSelectCertificateJson)>("NorvikSelectCertificateJson")(
            platform::ToWide(request).c_str(), HearJson, kContext);
    }
    bool FromStore(const char16_t* store) {
        return library_.Export<decltype(NorvikSelectCertificateCB)>("NorvikSelectCertificateCB")(store, HearRecord,
                                                                                                 kContext);
    }
    bool FromFile(const char16_t* file, int dialog) {
        return library_.Export<decltype(NorvikSelectCertificateFromFileCB)>("NorvikSelectCertificateFromFileCB")(
            file, HearRecord, dialog, kContext);
    }
    int IntoBuffers(const char16_t* file, Buffers& to, bool* flag, int dialog) {
        return library_.Export<decltype(NorvikSelectCertificateFromFile)>("NorvikSelectCertificateFromFile")(
            file, to[0], to[1], to[2], to[3], flag, dialog);
    }
    bool FromMy(Buffers& to) {
        return library_.Export<decltype(NorvikSelectCertificate)>("NorvikSelectCertificate")(to[0], to[1], to[2],
                                                                                             to[3]);
    }
    void Probe() { library_.Export<decltype(NorvikCertSelectPrivate)>("NorvikCertSelectPrivate")(); }
    void ChooseFirst() {
        script_.choose = [](const ui::CertificateQuestion& question) {
            return platform::CertEnumCertificatesInStore(question.certificates.store).at(0);
        };
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

TEST_F(SelectExports, AskAlsoForASingleOneUnlessToldNotTo) {
    const auto file = platform::ToUtf8(Write("one.pem", ivan_.Pem()));
    ChooseFirst();
    EXPECT_TRUE(Json(R"({"Filename":")" + file + "\"}"));
    EXPECT_THAT(heard.back(), StartsWith("{\r\n  \"Serial\": \"" + ivan_.SerialHex()));
    ASSERT_EQ(script_.certificatesAsked.size(), 1U);
    EXPECT_EQ(script_.certificatesAsked[0].title, u"Избиране на сертификат ...");
    EXPECT_TRUE(Json(R"({"Filename":")" + file + R"(","ShowDialogIfOne":false})"));
    EXPECT_EQ(script_.certificatesAsked.size(), 1U);
    EXPECT_EQ(heard.size(), 2U);
    EXPECT_EQ(heard[0], heard[1]);

    // None left, or several: a question, whatever was told.
    const auto two = platform::ToUtf8(Write("two.pem", ivan_.Pem() + ca_.Pem() + expired_.Pem()));
    script_.choose = nullptr;
    for (const auto& [request, offered] :
         {std::pair{R"({"Filename":")" + two + R"(","ShowDialogIfOne":false})", 2U},
          std::pair{R"({"Filename":")" + file + R"(","ShowDialogIfOne":false,"ThumbprintExclude":[")" +
                        ivan_.Thumbprint() + "\"]}",
                    0U}}) {
        EXPECT_FALSE(Json(request));
        EXPECT_EQ(script_.certificatesAsked.back().certificates.GetCertificateCount(), offered) << request;
    }
    EXPECT_EQ(script_.certificatesAsked.size(), 3U);
    EXPECT_EQ(heard.size(), 2U) << "a cancelled choice calls nobody";
}

TEST_F(SelectExports, TellEachFailureInItsOwnWords) {
    const auto object = [](const std::string& message) {
        return "{\r\n  \"Error\": true,\r\n  \"ErrorMessage\": \"" + message + "\"\r\n}\r\n";
    };
    EXPECT_FALSE(Json(R"({"ShowDialogIfOne":false})"));
    EXPECT_EQ(heard.back(), object("CertInfoJson: Invalid input parameters!!!"));
    EXPECT_FALSE(Json(R"({"Store":"Nobody"})"));
    EXPECT_EQ(heard.back(), object("Cannot open certificate store.\\n"));
    EXPECT_FALSE(Json(R"({"Filename":"/nowhere/at/all.cer"})"));
    EXPECT_THAT(heard.back(), HasSubstr("\"Cannot open file.\\nMsg: "));
    const auto garbage = Write("garbage.PFX", "no PFX");
    EXPECT_FALSE(Json(R"({"Filename":")" + platform::ToUtf8(garbage) + "\"}"));
    EXPECT_EQ(heard.back(), object("Invalid password for " + platform::ToUtf8(garbage)));

    heard.clear();
    EXPECT_TRUE(FromStore(u" \t")) << "true is failure here";
    EXPECT_FALSE(FromFile(u"\r\n", 1));
    EXPECT_TRUE(FromStore(u"Nobody"));
    EXPECT_FALSE(FromFile(garbage.c_str(), 1));
    EXPECT_THAT(heard, testing::ElementsAre("error|SelectCertificateFromFileCB: Invalid input parameters.",
                                            "error|SelectCertificateFromFileCB: Invalid input parameters!!!",
                                            "error|Cannot open certificate store.\n",
                                            "error|Invalid password for " + platform::ToUtf8(garbage)));
    EXPECT_TRUE(library_.Export<decltype(NorvikSelectCertificateCB)>("NorvikSelectCertificateCB")(u"MY", nullptr, 0));
    EXPECT_TRUE(script_.certificatesAsked.empty());
}

TEST_F(SelectExports, HandTheChoiceToTheCallback) {
    tests::InstallCertificate(profile_, "MY", ivan_, true);
    EXPECT_TRUE(FromStore(u"MY")) << "cancelled";
    EXPECT_TRUE(heard.empty());
    ChooseFirst();
    EXPECT_FALSE(FromStore(u"MY"));
    EXPECT_EQ(script_.certificatesAsked.size(), 2U);
    const auto asked = script_.certificatesAsked.size();
    EXPECT_TRUE(FromFile(Write("one.pem", ivan_.Pem()).c_str(), 0));
    EXPECT_EQ(script_.certificatesAsked.size(), asked);
    ASSERT_EQ(heard.size(), 2U);
    EXPECT_THAT(heard[0], StartsWith("false|Иван|" + ivan_.Thumbprint() + "|Издател|20"));
    EXPECT_THAT(heard[0], HasSubstr("T")) << "the record's own date, not a short one";
    EXPECT_EQ(heard[0], heard[1]);
}

TEST_F(SelectExports, FillBuffersAndNeverWriteBeyondThem) {
    tests::InstallCertificate(profile_, "MY", ivan_, true);
    Buffers buffers;
    EXPECT_FALSE(FromMy(buffers)) << "cancelled";
    EXPECT_TRUE(buffers.Untouched());
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
        EXPECT_EQ(IntoBuffers(Write("long.pem", long_.Pem()).c_str(), full, &flag, 0), 1);
        EXPECT_EQ(full.Text(0), kept ? name : "") << length;
        EXPECT_EQ(full.Text(1), long_.Thumbprint());
        EXPECT_TRUE(full.GuardsStand()) << length;
        EXPECT_FALSE(flag);
    }
}

TEST_F(SelectExports, AnswerWrongArgumentsOfTheBufferFormsByTheirResult) {
    Buffers buffers;
    bool flag = true;
    EXPECT_EQ(IntoBuffers(u" ", buffers, &flag, 0), -1);
    EXPECT_EQ(IntoBuffers(nullptr, buffers, &flag, 0), -1);
    EXPECT_EQ(IntoBuffers(u"a.cer", buffers, nullptr, 0), -1);
    const auto select = library_.Export<decltype(NorvikSelectCertificate)>("NorvikSelectCertificate");
    EXPECT_FALSE(select(buffers[0], buffers[1], nullptr, buffers[3]));
    EXPECT_TRUE(script_.shown.empty());
    EXPECT_EQ(IntoBuffers(u"/nowhere/at/all.cer", buffers, &flag, 0), 0);
    EXPECT_TRUE(script_.shown.empty());
    EXPECT_EQ(IntoBuffers(Write("garbage.p12", "no PFX").c_str(), buffers, &flag, 0), 1);
    ASSERT_EQ(script_.shown.size(), 1U);
    EXPECT_THAT(script_.Texts()[0], StartsWith("Invalid password for "));
    EXPECT_EQ(script_.shown[0].title, u"Грешка");
    tests::InstallCertificate(profile_, "MY", ivan_, true);
    script_.choose = [](const auto&) -> platform::CertificateContext { throw ui::Unavailable("няма екран"); };
    EXPECT_FALSE(FromMy(buffers));
    EXPECT_EQ(script_.Texts().back(), "няма екран");
    EXPECT_TRUE(buffers.Untouched());
    EXPECT_TRUE(flag);
}

TEST_F(SelectExports, TryTheKeyOfAChosenCertificate) {
    Probe();
    EXPECT_EQ(script_.certificatesAsked.size(), 1U) << "asked also where there is none";
    EXPECT_EQ(script_.certificatesAsked[0].title, u"Изберете сертификат ...");
    tests::InstallCertificate(profile_, "MY", ivan_, true);
    tests::InstallCertificate(profile_, "MY", expired_, true);
    ChooseFirst();
    Probe();
    EXPECT_EQ(script_.certificatesAsked.back().certificates.GetCertificateCount(), 1U);
    EXPECT_THAT(script_.Texts(), testing::IsEmpty());

    script_.choose = [this](const auto&) { return platform::CertCreateCertificateContext(ca_.Der()); };
    Probe();
    ASSERT_EQ(script_.shown.size(), 1U);
    EXPECT_THAT(script_.Texts()[0], HasSubstr("Error 0x8009200b")) << "a certificate without a key";
}

TEST_F(SelectExports, TryTheKeyOfACardWithItsPin) {
    if (!tests::SoftToken::Available()) GTEST_SKIP() << "SoftHSM2 or pkcs11-tool is not installed";
    tests::SoftToken token(profile_);
    token.Put(ivan_, "01");
    ChooseFirst();
    Probe();
    ASSERT_EQ(script_.shown.size(), 1U) << "no PIN given";
    EXPECT_THAT(script_.Texts()[0], HasSubstr("Error 0x8010006e"));
    EXPECT_THAT(script_.Texts()[0], StartsWith("File - src/NorvikMain\nLine - 556\n"));
    script_.pins = {"000000"};
    Probe();
    ASSERT_EQ(script_.shown.size(), 2U);
    EXPECT_THAT(script_.Texts()[1], HasSubstr("Error 0x8010006b")) << "a wrong PIN";
    script_.pins = {token.Pin()};
    Probe();
    EXPECT_EQ(script_.shown.size(), 2U) << script_.Texts().back();
    EXPECT_EQ(script_.asked.size(), 3U);
}

}  // namespace

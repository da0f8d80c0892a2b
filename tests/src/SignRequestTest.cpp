#include "src/signing/SignRequest.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "norvik/norvik.h"
#include "platform/Text.h"
#include "src/Norvik.h"
#include "src/signing/Relay.h"
#include "src/signing/SignExports.h"
#include "tests/src/Heard.h"
#include "tests/support/Pki.h"
#include "tests/support/Process.h"
#include "tests/support/ScriptedInterface.h"
#include "toolkit/CkJsonObjectW.h"

namespace {

namespace fs = std::filesystem;
using testing::HasSubstr;

using tests::heard;
using tests::HearJson;
using tests::kContext;

class SignRequestTest : public testing::Test {
  protected:
    SignRequestTest() {
        heard.clear();
        pki_.Install(profile_);
        CNorvikApp::Start(std::make_unique<tests::ScriptedInterface>(script_));
        file_ = profile_.Write("documents/договор.pdf", "The words that count.\n");
        script_.decide = [](const ui::SignQuestion& question) -> std::optional<ui::SignDecision> {
            if (question.certificates.empty()) return std::nullopt;
            return ui::SignDecision{question.certificates[0].Context(), std::nullopt, question.detached};
        };
    }
    ~SignRequestTest() override { CNorvikApp::Stop(); }

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
    tests::Profile profile_;
    tests::StandardPki pki_;
    tests::Script script_;
    fs::path file_;
};

TEST_F(SignRequestTest, LeavesTheFormToThePersonOnlyInOtherModes) {
    struct Case {
        const char *name, *members;
        bool detached, boxShown;
    };
    for (const auto& row :
         {Case{"a.txt", "", true, false}, Case{"a.txt", R"(, "SignMode": 0)", true, false},
          Case{"a.txt", R"(, "SignMode": 1)", false, false}, Case{"a.txt", R"(, "SignMode": 2)", false, true},
          Case{"a.p7m", R"(, "SignMode": 0)", false, false}, Case{"a.p7s", R"(, "SignMode": 2)", false, false},
          Case{"a.P7M", R"(, "SignMode": 0)", true, false}}) {
        file_ = profile_.Write(row.name, "content");
        ASSERT_TRUE(Run(Request(row.members))) << row.name << row.members;
        EXPECT_EQ(script_.signAsked.back().detached, row.detached) << row.name << row.members;
        EXPECT_EQ(script_.signAsked.back().showDetachedBox, row.boxShown) << row.name << row.members;
        EXPECT_EQ(Member(u"ResultFile"), file_.string() + (row.detached ? ".p7s" : ".p7m"));
    }
}

TEST_F(SignRequestTest, AnswersWithTheResultInTheFolderThatWasNamed) {
    const auto folder = profile_.Folder() / "made";
    ASSERT_TRUE(Run(Request(R"(, "SignMode": 1, "ResultFolder": ")" + folder.string() + '"')));
    const auto result = folder / "договор.pdf.p7m";
    EXPECT_EQ(heard.size(), 1u);
    EXPECT_EQ(Member(u"SignFile"), file_.string());
    EXPECT_EQ(Member(u"ResultFile"), result.string());
    EXPECT_EQ(Member(u"SignMode"), "1");
    EXPECT_EQ(Member(u"Error"), "<none>");
    EXPECT_THAT(heard[0], HasSubstr("\n")) << "over several lines";
    EXPECT_TRUE(fs::exists(result));
}

TEST_F(SignRequestTest, OffersWhatTheFilterLetsThroughFromEverySourceAgain) {
    auto lower = pki_.signer.Thumbprint();
    for (auto& c : lower)
        c = static_cast<char>(std::tolower(c));
    ASSERT_TRUE(Run(Request(R"(, "StoreWindows": "MY", "ThumbprintInclude": [")" + lower + R"("])")));
    EXPECT_EQ(script_.signAsked.back().certificates.size(), 2u);
    EXPECT_FALSE(Run(Request(R"(, "ThumbprintExclude": [")" + lower + R"("])")));
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
    const auto garbage = profile_.Write("garbage.pfx", "no keys");
    EXPECT_FALSE(Run(Request(R"(, "StoreFilename": ")" + garbage.string() + R"(", "StorePassword": "x")")));
    EXPECT_EQ(Member(u"ErrorMessage"), "Invalid password for " + garbage.string());
    script_.decide = [](const ui::SignQuestion&) -> std::optional<ui::SignDecision> {
        throw ui::Unavailable("няма екран");
    };
    EXPECT_FALSE(Run(Request()));
    EXPECT_EQ(Member(u"ErrorMessage"), "няма екран");
}

TEST_F(SignRequestTest, OlderFormsGiveThePathInTheirBuffer) {
    static constexpr auto sign = [](const char16_t* request, NorvikJsonCallback callback, std::uint64_t context) {
        return signing::SignByRequest(request, callback, context);
    };
    const auto file = file_.u16string();
    std::u16string buffer(4096, u'?');
    EXPECT_TRUE(signing::SignFileByArguments(sign, file.c_str(), 1, buffer.data(), nullptr, u"  ignored "));
    EXPECT_EQ(std::u16string(buffer.c_str()), file + u".p7m");
    EXPECT_TRUE(signing::SignFileByArguments(sign, file.c_str(), 0, nullptr, u"", nullptr));
    EXPECT_FALSE(signing::SignFileByArguments(sign, file.c_str(), 0, nullptr, u"AA;;BB;", nullptr));
    EXPECT_TRUE(script_.signAsked.back().certificates.empty()) << "no thumbprint of the list is there";
    for (const auto* none : {static_cast<const char16_t*>(nullptr), u" \t\r\n", u"/no/such/file"})
        EXPECT_FALSE(signing::SignFileByArguments(sign, none, 1, buffer.data(), nullptr, nullptr));
    script_.decide = [&](const ui::SignQuestion& question) -> std::optional<ui::SignDecision> {
        fs::remove(file_);
        return ui::SignDecision{question.certificates[0].Context(), std::nullopt, false};
    };
    EXPECT_TRUE(signing::SignFileByArguments(sign, file.c_str(), 1, buffer.data(), nullptr, nullptr));
    EXPECT_EQ(buffer[0], 0) << "the empty text tells the failure";
}

TEST_F(SignRequestTest, TheLaunchersSidePutsTheAnswerInThePlaceOfTheRequest) {
    const auto relay = profile_.Write("session with blanks/out.txt", Request(R"(, "SignMode": 1)"));
    signing::AnswerRelayedRequest(relay.u16string().c_str());
    EXPECT_THAT(tests::ReadFile(relay), HasSubstr(".p7m"));
    profile_.Write("session with blanks/out.txt", Request());
    script_.decide = nullptr;
    signing::AnswerRelayedRequest(relay.u16string().c_str());
    EXPECT_EQ(tests::ReadFile(relay), "") << "who cancels leaves nothing";
    EXPECT_TRUE(script_.shown.empty());
    signing::AnswerRelayedRequest(u"/no/such/file");
    EXPECT_EQ(script_.Texts().back(), "Грешни параметри за подписване");
}

}  // namespace

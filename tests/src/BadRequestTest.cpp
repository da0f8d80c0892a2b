// Requests that no application should make, and all of them do one day: each gets one answer or none, as its kind has
// it, and the next request is served as if nothing had been.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include "norvik/norvik.h"
#include "platform/Text.h"
#include "tests/src/LoadedLibrary.h"
#include "tests/support/Pki.h"
#include "tests/support/SoftToken.h"
#include "toolkit/CkJsonArrayW.h"
#include "toolkit/CkJsonObjectW.h"

namespace {

using testing::HasSubstr;

struct Answer {
    bool done = false;
    std::vector<std::u16string> calls;
    [[nodiscard]] std::string Text() const {
        return calls.size() == 1 ? platform::ToUtf8(calls[0]) : std::to_string(calls.size()) + " calls";
    }
};

void Hear(std::uint64_t context, const char16_t* json) {
    reinterpret_cast<Answer*>(context)->calls.emplace_back(json);
}

class BadRequest : public testing::Test {
  protected:
    BadRequest() {
        tests::UseNoPkcs11Modules(profile_);
        pki_.Install(profile_);
        script_.decide = [this](const ui::SignQuestion& question) -> std::optional<ui::SignDecision> {
            offered_ = question.certificates.size();
            return std::nullopt;
        };
    }
    Answer Call(const char* name, const std::u16string& request) {
        Answer answer;
        answer.done = library_.Export<decltype(NorvikSignFileJson)>(name)(request.c_str(), Hear,
                                                                          reinterpret_cast<std::uint64_t>(&answer));
        return answer;
    }
    Answer Call(const char* name, const std::string& request) { return Call(name, platform::ToWide(request)); }
    Answer Describe(const auto& request) { return Call("NorvikCertInfoJson", request); }
    Answer Select(const auto& request) { return Call("NorvikSelectCertificateJson", request); }
    Answer Sign(const auto& request) { return Call("NorvikSignFileJson", request); }

    // The number of records, or -1 for the failure.
    static int Records(const Answer& answer) {
        toolkit::CkJsonArrayW array;
        EXPECT_EQ(answer.calls.size(), 1U);
        EXPECT_TRUE(answer.calls.size() == 1 && array.Load(answer.calls[0].c_str()));
        const bool failed = array.Size() == 1 && array.ObjectAt(0)->BoolOf(u"Error");
        EXPECT_EQ(answer.done, !failed);
        return failed ? -1 : array.Size();
    }
    // One call with a failure over several lines, and false.
    static void ExpectRefused(const Answer& answer, const std::string& text, const std::string& request) {
        EXPECT_FALSE(answer.done) << request.substr(0, 200);
        EXPECT_THAT(answer.Text(), HasSubstr("\"Error\": true,\r\n")) << request.substr(0, 200);
        EXPECT_THAT(answer.Text(), HasSubstr("\"ErrorMessage\": \"" + text)) << request.substr(0, 200);
    }
    // The library still does what it is for.
    void ExpectService() { EXPECT_EQ(Records(Describe(R"({"Store":"MY"})")), 1); }

    tests::Profile profile_;
    tests::StandardPki pki_;
    tests::Script script_;
    std::size_t offered_ = 0;
    const tests::LoadedLibrary library_{script_};
};

constexpr const char* kNoSource = "CertInfoJson: Invalid input parameters!!!";
constexpr const char* kNoFile = "SignFileJson: Invalid json input!!!";

TEST_F(BadRequest, ThatIsNoObjectIsRefusedInTheWordsOfEachFunction) {
    const std::string requests[] = {"no json",
                                    "[]",
                                    "[1,2]",
                                    "null",
                                    "<x/>",
                                    "}{",
                                    "{",
                                    "{}",
                                    "{\"a",
                                    "{\"a\":",
                                    "{a:1}",
                                    "{'Filename':'x'}",
                                    R"({"filename":"x"})",
                                    R"({"a":{"Filename":"x","Store":"MY","SignFile":"x"}})",
                                    "\xEF\xBB\xBF",
                                    "/no/such/file",
                                    profile_.Folder().string(),
                                    std::string(600, 'x')};
    for (const auto& request : requests) {
        ExpectRefused(Describe(request), kNoSource, request);
        ExpectRefused(Select(request), kNoSource, request);
        ExpectRefused(Sign(request), kNoFile, request);
    }
    // Nothing at all is told by the two that look at certificates alone.
    for (const std::string blank : {"", " \t\r\n\v\f"}) {
        ExpectRefused(Describe(blank), kNoSource, blank);
        ExpectRefused(Select(blank), kNoSource, blank);
        EXPECT_TRUE(!Sign(blank).done && Sign(blank).calls.empty());
    }
    EXPECT_TRUE(script_.shown.empty() && script_.signAsked.empty());
    ExpectService();
}

TEST_F(BadRequest, CutAtAnyLengthIsReadAsFarAsItGoes) {
    const std::string describe = R"({"ThumbprintExclude": ["AA", "BB"], "Store": "MY", "ShowDialogIfOne": false})";
    const auto complete = describe.find("\"MY\"") + 3;  // the text's end stands for the closing quote
    for (std::size_t length = 0; length < describe.size(); ++length) {
        const auto part = describe.substr(0, length);
        EXPECT_EQ(Records(Describe(part)), length >= complete ? 1 : -1) << part;
        const auto chosen = Select(part);
        EXPECT_TRUE(chosen.done || length < describe.find("false") + 5) << part;
        EXPECT_LE(chosen.calls.size(), 1U) << part;
    }
    const std::string sign =
        R"({"SignFile": "/tmp/a.txt", "SignMode": 2, "ThumbprintInclude": ["AA"], "TSA": [{"title": "x"}]})";
    for (std::size_t length = 1; length < sign.size(); ++length) {
        const auto asked = script_.signAsked.size();
        const auto answer = Sign(sign.substr(0, length));
        EXPECT_FALSE(answer.done);
        const bool named = length >= sign.find(':') + 1;
        EXPECT_EQ(script_.signAsked.size(), asked + (named ? 1 : 0)) << sign.substr(0, length);
        EXPECT_EQ(answer.calls.size(), named ? 0U : 1U) << sign.substr(0, length);
    }
}

TEST_F(BadRequest, NestedAHundredThousandLevelsDeepIsNoBurden) {
    const auto nested = [](const std::string& open, const std::string& inner, const std::string& close) {
        constexpr int levels = 100'000;
        std::string text;
        for (int i = 0; i < levels; ++i)
            text += open;
        text += inner;
        for (int i = 0; i < levels; ++i)
            text += close;
        return text;
    };
    const auto arrays = nested("[", "", "]"), objects = nested("{\"a\":", "1", "}");
    ExpectRefused(Describe(objects), kNoSource, objects);
    ExpectRefused(Select(nested("{\"a\":", "", "")), kNoSource, objects);
    ExpectRefused(Sign(arrays), kNoFile, arrays);
    for (const auto& deep : {arrays, objects, nested("[", "", ""), nested("{\"a\":[", "", "")}) {
        ExpectRefused(Describe(R"({"Filename":)" + deep + "}"), "Cannot open file.\\n", deep);
        ExpectRefused(Select(R"({"Store":)" + deep + "}"), "Cannot open certificate store.\\n", deep);
        EXPECT_EQ(Records(Describe(R"({"Store":"MY","ThumbprintExclude":)" + deep + "}")), 1);
        EXPECT_TRUE(Sign(R"({"SignFile":"x","TSA":)" + deep + "}").calls.empty());
    }
    ExpectService();
}

TEST_F(BadRequest, OfAHundredMebibytesIsReadAndForgotten) {
    constexpr std::size_t size = std::size_t{100} << 20;
    const std::u16string long16(size, u'x'), blanks(size, u' ');
    ExpectRefused(Describe(u"{\"Filename\":\"" + long16 + u"\"}"), "Cannot open file.\\n", "long name");
    ExpectRefused(Select(u"{\"Store\":\"" + long16 + u"\"}"), "Cannot open certificate store.\\n", "long store");
    ExpectRefused(Sign(long16), kNoFile, "no brace");
    EXPECT_EQ(Records(Describe(u"{\"Store\":\"MY\"," + blanks + u"\"ThumbprintInclude\":\"" + long16 + u"\"}")), 1);
    EXPECT_TRUE(Sign(blanks).calls.empty());
    EXPECT_TRUE(Sign(u"{\"SignFile\":\"" + long16 + u"\"}").calls.empty());
    EXPECT_EQ(script_.signAsked.size(), 1U);
    ExpectService();
}

// Any value has a text, and that is what counts.
TEST_F(BadRequest, WithValuesOfTheWrongKindIsTakenByTheirTexts) {
    const auto one = profile_.Write("1", pki_.signer.Pem()).parent_path();
    const auto previous = std::filesystem::current_path();
    std::filesystem::current_path(one);  // a file by the name of a number
    EXPECT_EQ(Records(Describe(R"({"Filename":1})")), 1);
    std::filesystem::current_path(previous);
    for (const char* value : {"null", "true", "-1.5e99", "{}", "[]", "[1,{\"a\":2}]", "\"\"", "\"\\u0000\"",
                              "\"\\ud800\"", "\"../MY\"", "\"/\"", "\"a\\u0000b\""}) {
        const std::string text = value;
        EXPECT_EQ(Records(Describe(R"({"Filename":)" + text + "}")), -1) << value;
        EXPECT_EQ(Records(Describe(R"({"Store":)" + text + "}")), -1) << value;
        EXPECT_EQ(Select(R"({"Filename":)" + text + "}").calls.size(), 1U) << value;
        EXPECT_TRUE(Sign(R"({"SignFile":)" + text + R"(,"ResultFolder":)" + text + R"(,"TSA":)" + text +
                         R"(,"StoreWindows":)" + text + R"(,"StorePassword":)" + text + "}")
                        .calls.empty())
            << value;
        EXPECT_EQ(offered_, 1U) << value;
        // No list that is none takes anything away.
        EXPECT_EQ(Records(Describe(R"({"Store":"MY","ThumbprintInclude":)" + (text[0] == '[' ? "5" : text) +
                                   R"(,"AuthIdExclude":)" + text + "}")),
                  1)
            << value;
    }
    struct Mode {
        const char* value;
        bool detached, box;
    };
    for (const auto& [value, detached, box] :
         {Mode{"\"1\"", false, false}, Mode{"true", true, false}, Mode{"null", true, false}, Mode{"{}", true, false},
          Mode{"\"x\"", true, false}, Mode{"1.9", false, false}, Mode{"-1", false, true},
          Mode{"2147483648", false, true}, Mode{"99999999999999999999", false, true}}) {
        EXPECT_TRUE(Sign(std::string(R"({"SignFile":"x","SignMode":)") + value + "}").calls.empty());
        EXPECT_EQ(script_.signAsked.back().detached, detached) << value;
        EXPECT_EQ(script_.signAsked.back().showDetachedBox, box) << value;
    }
    EXPECT_TRUE(
        Sign(R"({"SignFile":"x","TSA":[1,"x",null,[],{},{"title":5,"url":[]},{"timeout":"x"}]})").calls.empty());
    EXPECT_TRUE(script_.shown.empty());
}

TEST_F(BadRequest, NoThumbprintInAnotherFormMatches) {
    const auto right = pki_.signer.Thumbprint();
    const auto spaced = [&](const std::string& separator) {
        std::string text;
        for (std::size_t i = 0; i < right.size(); i += 2)
            text += (i > 0 ? separator : "") + right.substr(i, 2);
        return text;
    };
    auto cyrillic = right;
    cyrillic.replace(cyrillic.find_first_of("ABCEF"), 1, "А");  // the Bulgarian letter
    const std::string wrong[] = {spaced(" "), spaced(":"), " " + right,       right + "\\n", right.substr(0, 39),
                                 cyrillic,    "",          right + "\\u0000", "\\ud800",     std::string(1 << 20, 'A')};
    for (const auto& text : wrong) {
        const auto list = R"(":[")" + text + "\"]}";
        EXPECT_EQ(Records(Describe(R"({"Store":"MY","ThumbprintInclude)" + list)), 0) << text.substr(0, 80);
        EXPECT_EQ(Records(Describe(R"({"Store":"MY","ThumbprintExclude)" + list)), 1) << text.substr(0, 80);
        EXPECT_FALSE(Sign(R"({"SignFile":"x","ThumbprintInclude)" + list).done);
        EXPECT_EQ(offered_, 0U) << text.substr(0, 80);
    }
    std::string many;
    for (int i = 0; i < 20'000; ++i)
        many += "\"" + std::to_string(i) + "\",";
    EXPECT_EQ(Records(Describe(R"({"Store":"MY","ThumbprintInclude":[)" + many + "\"" + right + "\"]}")), 1);
    EXPECT_EQ(Records(Describe(R"({"Store":"MY","ThumbprintInclude":[null,7,{},[],true]})")), 0);
}

TEST_F(BadRequest, BrokenEntriesOfAStoreHideNoOthers) {
    const auto folder = profile_.Stores() / "MY";
    const auto der = platform::AsText(pki_.signer.Der());
    profile_.Write(folder / "empty.cer", "");
    profile_.Write(folder / "text.cer", "words");
    profile_.Write(folder / "cut.cer", der.substr(0, der.size() / 2));
    profile_.Write(folder / "zeros.cer", std::string(1 << 20, '\0'));
    profile_.Write(folder / "folder.cer/inside.cer", der);
    profile_.Write(folder / "cut.pem", pki_.ca.Pem().substr(0, 200));
    profile_.Write(folder / "joined.pem", pki_.ca.Pem().substr(0, 200) + pki_.tsa.Pem());
    profile_.Write(folder / (pki_.ca.Thumbprint() + ".key"), "no key");
    std::filesystem::create_symlink("nowhere", folder / "dangling.cer");
    std::filesystem::create_symlink("self.cer", folder / "self.cer");
    ASSERT_EQ(mkfifo((folder / "pipe.cer").c_str(), 0600), 0);
    EXPECT_EQ(Records(Describe(R"({"Store":"MY"})")), 2);
    Sign(R"({"SignFile":"x"})");
    EXPECT_EQ(offered_, 2U);
    const auto only = profile_.Write(profile_.Stores() / "Broken/text.cer", "words");
    ExpectRefused(Describe(R"({"Store":"Broken"})"), "Cannot open certificate store.\\n", "nothing whole in it");
}

TEST_F(BadRequest, WithoutACallbackOrATextDoesNothing) {
    Answer answer;
    const auto context = reinterpret_cast<std::uint64_t>(&answer);
    for (const auto* name : {"NorvikSignFileJson", "NorvikSelectCertificateJson", "NorvikCertInfoJson"}) {
        auto* const function = library_.Export<decltype(NorvikSignFileJson)>(name);
        EXPECT_FALSE(function(nullptr, Hear, context)) << name;
        EXPECT_FALSE(function(uR"({"SignFile":"x","Store":"MY"})", nullptr, context)) << name;
        EXPECT_FALSE(function(nullptr, nullptr, 0)) << name;
    }
    EXPECT_TRUE(answer.calls.empty());
    EXPECT_FALSE(library_.Export<decltype(NorvikCertInfo)>("NorvikCertInfo")(u"x", nullptr, 0));
    EXPECT_FALSE(library_.Export<decltype(NorvikCertInfo2)>("NorvikCertInfo2")(u"x", nullptr, 0));
    library_.Export<decltype(NorvikCertStoreInfo)>("NorvikCertStoreInfo")(u"", nullptr, 0);
    EXPECT_TRUE(script_.signAsked.empty() && script_.certificatesAsked.empty() && script_.shown.empty());
}

}  // namespace

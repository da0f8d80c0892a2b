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
    std::istringstream lines(R"(no json
[]
[1,2]
null
<x/>
}{
{
{}
{"a
{"a":
{a:1}
{'Filename':'x'}
{"filename":"x"}
{"a":{"Filename":"x","Store":"MY","SignFile":"x"}}
/no/such/file)");
    std::vector<std::string> requests{"\xEF\xBB\xBF", profile_.Folder().string(), std::string(600, 'x')};
    for (std::string line; std::getline(lines, line);)
        requests.push_back(line);
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

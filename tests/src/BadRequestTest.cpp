// Requests that no application should make, and all of them do one day: each gets one answer or none, as its kind has
// it, and the next request is served as if nothing had been.

#include <sys/stat.h>

#include "tests/src/Exports.h"
#include "tests/src/Person.h"
#include "toolkit/CkJsonArrayW.h"
#include "toolkit/CkJsonObjectW.h"

namespace {

using namespace tests;

class BadRequest : public PersonTest {
  protected:
    BadRequest() {
        pki_.Install(profile_);
        script_.decide = [this](const ui::SignQuestion& question) -> std::optional<ui::SignDecision> {
            offered_ = question.certificates.size();
            return std::nullopt;
        };
    }
    struct Answer {
        bool done = false;
        std::vector<std::string> calls;
        [[nodiscard]] bool IsNone() const { return !done && calls.empty(); }
    };
    static Answer Call(decltype(NorvikSignFileJson)* function, const std::string& request) {
        heard.clear();
        const bool done = function(platform::ToWide(request).c_str(), HearJson, kContext);
        return {done, heard};
    }
    Answer Describe(const std::string& request) { return Call(EXPORT(NorvikCertInfoJson), request); }
    Answer Select(const std::string& request) { return Call(EXPORT(NorvikSelectCertificateJson), request); }
    Answer Sign(const std::string& request) { return Call(EXPORT(NorvikSignFileJson), request); }

    // The number of records, or -1 for the failure.
    int Records(const std::string& request) {
        const auto answer = Describe(request);
        toolkit::CkJsonArrayW array;
        EXPECT_TRUE(answer.calls.size() == 1 && array.Load(platform::ToWide(answer.calls[0]).c_str()));
        const bool failed = array.Size() == 1 && array.ObjectAt(0)->BoolOf(u"Error");
        EXPECT_EQ(answer.done, !failed);
        return failed ? -1 : array.Size();
    }
    // One call with a failure over several lines, and false.
    static void ExpectRefused(const Answer& answer, const std::string& text) {
        using testing::HasSubstr;
        EXPECT_FALSE(answer.done);
        EXPECT_THAT(answer.calls, testing::ElementsAre(testing::AllOf(HasSubstr("\"Error\": true,\r\n"),
                                                                      HasSubstr("\"ErrorMessage\": \"" + text))));
    }

    const StandardPki pki_;
    std::size_t offered_ = 0;
    const LoadedLibrary library_{script_};
};

TEST_F(BadRequest, ThatIsNoObjectIsRefusedInTheWordsOfEachFunction) {
    constexpr char noSource[] = "CertInfoJson: Invalid input parameters!!!";
    for (const std::string request : {"", " \t\r\n\v\f", "\xEF\xBB\xBF", "no json", "[]", "[1,2]", "null", "<x/>", "}{",
                                      "{", "{}", "{\"a", "{\"a\":", "{a:1}", "{'Filename':'x'}", R"({"filename":"x"})",
                                      R"({"a":{"Filename":"x","Store":"MY","SignFile":"x"}})", "/no/such/file"}) {
        SCOPED_TRACE(request);
        ExpectRefused(Describe(request), noSource);
        ExpectRefused(Select(request), noSource);
        // Of a request that is blank nothing at all is told by the function that signs.
        if (request.find_first_not_of(" \t\r\n\v\f") != std::string::npos)
            ExpectRefused(Sign(request), "SignFileJson: Invalid json input!!!");
        else
            EXPECT_TRUE(Sign(request).IsNone());
    }
    EXPECT_TRUE(script_.shown.empty() && script_.signAsked.empty());
    EXPECT_EQ(Records(R"({"Store":"MY"})"), 1) << "the library still does what it is for";
}

// Any value has a text, and that is what counts.
TEST_F(BadRequest, WithValuesOfTheWrongKindIsTakenByTheirTexts) {
    const auto previous = std::filesystem::current_path();
    std::filesystem::current_path(profile_.Write("1", pki_.signer.Pem()).parent_path());  // a file by a number's name
    EXPECT_EQ(Records(R"({"Filename":1})"), 1);
    std::filesystem::current_path(previous);
    for (const std::string text : {"null", "true", "-1.5e99", "{}", "[]", "[1,{\"a\":2}]", "\"\"", "\"\\u0000\"",
                                   "\"\\ud800\"", "\"../MY\"", "\"/\"", "\"a\\u0000b\""}) {
        SCOPED_TRACE(text);
        EXPECT_EQ(Records(R"({"Filename":)" + text + "}"), -1);
        EXPECT_EQ(Records(R"({"Store":)" + text + "}"), -1);
        EXPECT_EQ(Select(R"({"Filename":)" + text + "}").calls.size(), 1U);
        EXPECT_TRUE(Sign(R"({"SignFile":)" + text + R"(,"ResultFolder":)" + text + R"(,"TSA":)" + text +
                         R"(,"StoreWindows":)" + text + R"(,"StorePassword":)" + text + "}")
                        .IsNone());
        EXPECT_EQ(offered_, 1U);
        // No list that is none takes anything away.
        EXPECT_EQ(Records(R"({"Store":"MY","ThumbprintInclude":)" + (text[0] == '[' ? "5" : text) +
                          R"(,"AuthIdExclude":)" + text + "}"),
                  1);
    }
    EXPECT_TRUE(Sign(R"({"SignFile":"x","TSA":[1,"x",null,[],{},{"title":5,"url":[]},{"timeout":"x"}]})").IsNone());
    EXPECT_TRUE(script_.shown.empty());
}

TEST_F(BadRequest, BrokenEntriesOfAStoreHideNoOthers) {
    const auto folder = profile_.Stores() / "MY";
    const std::string der(platform::AsText(pki_.signer.Der())), cut = pki_.ca.Pem().substr(0, 200);
    const std::pair<std::string, std::string> files[] = {{"empty.cer", ""},
                                                         {"text.cer", "words"},
                                                         {"cut.cer", der.substr(0, der.size() / 2)},
                                                         {"zeros.cer", std::string(1 << 20, '\0')},
                                                         {"folder.cer/inside.cer", der},
                                                         {"cut.pem", cut},
                                                         {"joined.pem", cut + pki_.tsa.Pem()},
                                                         {pki_.ca.Thumbprint() + ".key", "no key"}};
    for (const auto& [name, content] : files)
        profile_.Write(folder / name, content);
    std::filesystem::create_symlink("nowhere", folder / "dangling.cer");
    std::filesystem::create_symlink("self.cer", folder / "self.cer");
    ASSERT_EQ(mkfifo((folder / "pipe.cer").c_str(), 0600), 0);
    EXPECT_EQ(Records(R"({"Store":"MY"})"), 2);
    Sign(R"({"SignFile":"x"})");
    EXPECT_EQ(offered_, 2U);
    profile_.Write(profile_.Stores() / "Broken/text.cer", "words");  // nothing whole in it
    ExpectRefused(Describe(R"({"Store":"Broken"})"), "Cannot open certificate store.\\n");
}

TEST_F(BadRequest, WithoutACallbackOrATextDoesNothing) {
    heard.clear();
    for (auto* const function :
         {EXPORT(NorvikSignFileJson), EXPORT(NorvikSelectCertificateJson), EXPORT(NorvikCertInfoJson)}) {
        EXPECT_FALSE(function(nullptr, HearJson, kContext));
        EXPECT_FALSE(function(uR"({"SignFile":"x","Store":"MY"})", nullptr, kContext));
        EXPECT_FALSE(function(nullptr, nullptr, 0));
    }
    EXPECT_FALSE(EXPORT(NorvikCertInfo)(u"x", nullptr, 0));
    EXPECT_FALSE(EXPORT(NorvikCertInfo2)(u"x", nullptr, 0));
    EXPECT_TRUE(EXPORT(NorvikSelectCertificateCB)(u"MY", nullptr, 0)) << "true is failure here";
    EXPORT(NorvikCertStoreInfo)(u"", nullptr, 0);
    EXPECT_TRUE(heard.empty());
    EXPECT_TRUE(script_.signAsked.empty() && script_.certificatesAsked.empty() && script_.shown.empty());
}

}  // namespace

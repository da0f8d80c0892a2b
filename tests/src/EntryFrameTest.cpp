#include "src/EntryFrame.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <regex>
#include <set>
#include <sstream>
#include <stdexcept>

#include "tests/src/Heard.h"
#include "tests/support/Process.h"
#include "tests/support/Profile.h"
#include "tests/support/ScriptedInterface.h"

namespace {

using tests::heard;
using tests::kContext;

class Frame : public testing::Test {
  protected:
    Frame() {
        heard.clear();
        CNorvikApp::Start(std::make_unique<tests::ScriptedInterface>(script_));
    }
    ~Frame() override { CNorvikApp::Stop(); }
    tests::Profile profile_;
    tests::Script script_;
};

[[noreturn]] bool Throw() {
    throw std::runtime_error("Липсва файл");
}

TEST_F(Frame, HandsTheResultThroughOrTurnsAnExceptionIntoOneAnswerOfTheFunctionsForm) {
    using namespace tests;
    EXPECT_TRUE(EntryFrame::Run(JsonFailure{HearJson, kContext}, [] { return true; }));
    EXPECT_EQ(EntryFrame::Run(MessageBoxFailure{}, [] { return 7; }), 7);
    EXPECT_TRUE(heard.empty());
    EXPECT_FALSE(EntryFrame::Run(JsonFailure{HearJson, kContext}, Throw));
    EXPECT_FALSE(EntryFrame::Run(JsonArrayFailure{HearJson, kContext}, Throw));
    EXPECT_FALSE(EntryFrame::Run(RecordFailure{HearRecord, kContext}, Throw));
    EXPECT_TRUE(EntryFrame::Run(RecordFlagFailure{HearRecordFlag, kContext, true}, Throw)) << "its own result";
    EntryFrame::Run(SignInfoFailure{HearSignature, kContext}, [] { Throw(); });
    EXPECT_THAT(heard, testing::ElementsAre("{\r\n  \"Error\": true,\r\n  \"ErrorMessage\": \"Липсва файл\"\r\n}\r\n",
                                            "[{\"Error\":true,\"ErrorMessage\":\"Липсва файл\"}]", "error|Липсва файл",
                                            "error|Липсва файл", "error|Липсва файл"));
    EXPECT_FALSE(EntryFrame::Run(LogFailure{}, Throw));
    EXPECT_TRUE(script_.shown.empty());
    EXPECT_THAT(ReadFile(profile_.Folder() / "tmp/Norvik/Norvik.log"),
                testing::HasSubstr("[Norvik_logger] [error] Липсва файл"));
}

TEST_F(Frame, ShowsABoxAndAnswersOneWhereThereIsNoCallback) {
    const auto run = [] { return EntryFrame::Run(MessageBoxFailure{}, [] { return Throw() ? 2 : 3; }); };
    EXPECT_EQ(run(), 1);
    ASSERT_EQ(script_.shown.size(), 1u);
    EXPECT_EQ(script_.shown[0].title, u"Грешка");
    EXPECT_EQ(script_.shown[0].text, u"Липсва файл");
    EXPECT_EQ(script_.shown[0].icon, ui::Message::Icon::error);
    CNorvikApp::Stop();
    EXPECT_EQ(run(), 1) << "also where the library is on its way out";
}

TEST_F(Frame, CallsNoNullCallback) {
    EXPECT_FALSE(EntryFrame::Run(JsonFailure{nullptr, 0}, Throw));
    EXPECT_FALSE(EntryFrame::Run(JsonArrayFailure{nullptr, 0}, Throw));
    EXPECT_FALSE(EntryFrame::Run(RecordFailure{nullptr, 0}, Throw));
    EXPECT_FALSE(EntryFrame::Run(RecordFlagFailure{nullptr, 0}, Throw));
    EXPECT_NO_THROW(EntryFrame::Run(SignInfoFailure{nullptr, 0}, [] { Throw(); }));
}

// --- The exported list ---

std::set<std::string> Lines(const std::string& text) {
    std::istringstream stream(text);
    std::set<std::string> lines;
    for (std::string line; std::getline(stream, line);)
        lines.insert(line);
    return lines;
}

TEST(ExportedList, NamesWhatTheHeaderDeclaresAndTheLibraryShowsNothingElse) {
    const auto header = tests::ReadFile(NORVIK_SOURCE_DIR "/include/norvik/norvik.h");
    const std::regex declaration(R"(\nNORVIK_EXPORT \w+ (\w+)\()");
    std::set<std::string> declared;
    for (std::sregex_iterator at(header.begin(), header.end(), declaration), end; at != end; ++at)
        declared.insert((*at)[1]);
    EXPECT_EQ(declared.size(), 46u);
    EXPECT_EQ(declared, Lines(tests::ReadFile(NORVIK_SOURCE_DIR "/src/Norvik.exports")));
    const auto shown = tests::RunProgram(
        {"nm", "--dynamic", "--defined-only", "--format=just-symbols", NORVIK_BINARY_DIR "/lib/libNorvik.so"});
    const auto symbols = Lines(shown.output);
    EXPECT_THAT(symbols, testing::Contains("NorvikInit")) << shown.errors;
    for (const auto& symbol : symbols)
        EXPECT_TRUE(declared.contains(symbol)) << symbol;
}

}  // namespace

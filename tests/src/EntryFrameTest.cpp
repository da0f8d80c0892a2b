#include "src/EntryFrame.h"

#include <regex>
#include <set>
#include <sstream>

#include "tests/src/Person.h"
#include "tests/support/Process.h"

namespace {

using Frame = tests::PersonTest;

TEST_F(Frame, LetsNoExceptionOutWhereNobodyListensOrTheLibraryIsOnItsWayOut) {
    const auto work = []() -> bool { throw std::runtime_error("Липсва файл"); };
    EXPECT_FALSE(EntryFrame::Run(JsonFailure{nullptr, 0}, work));
    EXPECT_FALSE(EntryFrame::Run(JsonArrayFailure{nullptr, 0}, work));
    EXPECT_FALSE(EntryFrame::Run(RecordFailure{nullptr, 0}, work));
    EXPECT_TRUE(EntryFrame::Run(RecordFlagFailure{nullptr, 0, true}, work)) << "its own result";
    EXPECT_FALSE(EntryFrame::Run(LogFailure{}, work));
    EXPECT_NO_THROW(EntryFrame::Run(SignInfoFailure{nullptr, 0}, [&] { work(); }));
    EXPECT_TRUE(script_.shown.empty());
    EXPECT_THAT(Log(), testing::HasSubstr("[Norvik_logger] [error] Липсва файл"));
    const auto box = [&](auto operation) { return EntryFrame::Run(MessageBoxFailure{}, operation); };
    EXPECT_EQ(box([&] { return work() ? 2 : 3; }), 1);
    EXPECT_THAT(script_.Texts(), testing::ElementsAre("Липсва файл"));
    EXPECT_EQ(script_.shown[0].title, u"Грешка");
    EXPECT_EQ(script_.shown[0].icon, ui::Message::Icon::error);
    CNorvikApp::Stop();
    EXPECT_EQ(box([&] { return work() ? 2 : 3; }), 1);
    EXPECT_EQ(box([] { return 7; }), 7);
}

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

// Help and manual come from one parser: whatever can be typed is in both, whole.

#include <regex>
#include <set>

#include "tests/tools/CommandTest.h"

namespace {

using namespace tests;

class HelpTest : public CommandTest {
  protected:
    static std::set<std::string> Matches(const std::string& text, const char* pattern) {
        const std::regex expression(pattern);
        std::set<std::string> found;
        for (std::sregex_iterator it(text.begin(), text.end(), expression), end; it != end; ++it)
            found.insert(it->str(it->size() - 1));
        return found;
    }
    static void ExpectBulgarian(const std::string& text) {
        EXPECT_THAT(Matches(text, "\\b(the|is|required|expected|Usage|Options|Subcommand|TEXT|REQUIRED)\\b"), IsEmpty())
            << text;
    }
    const std::string file_ = NORVIK_BINARY_DIR "/man/norvik.1";
};

TEST_F(HelpTest, EveryOptionOfEveryCommandStandsInTheManualAndNoLineIsCutOrEnglish) {
    const auto manual = ReadFile(file_), plain = std::regex_replace(manual, std::regex("\\\\-"), "-");
    EXPECT_EQ(manual, Run("--man").output);
    const auto top = Run("--help").output;
    const auto commands = Matches(plain, "\n\\.SS \"norvik ([a-z ]+)\"");
    EXPECT_EQ(commands.size(), 20U);
    for (const auto& command : Matches(top, "\n  ([a-z]+) "))
        EXPECT_TRUE(std::ranges::any_of(commands, [&](const auto& name) { return name.starts_with(command); }))
            << command << " is not in the manual";
    for (const auto& command : commands) {
        SCOPED_TRACE(command);
        EXPECT_THAT(top, HasSubstr("\n  " + command.substr(0, command.find(' ')) + " "));
        const auto help = Run(command + " --help").output;
        EXPECT_THAT(help, AllOf(HasSubstr("Употреба: norvik " + command + " "), Not(HasSubstr("...\n  ")),
                                Not(HasSubstr("\xEF\xBF\xBD"))));
        ExpectBulgarian(help);
        const auto from = plain.find(".SS \"norvik " + command + "\"");
        const auto section = plain.substr(from, plain.find("\n.S", from + 1) - from);
        const auto options = Matches(help, "(--[a-z][a-z-]*)");
        EXPECT_FALSE(options.empty());
        for (const auto& option : options)
            EXPECT_THAT(section, HasSubstr(option));
    }
}

TEST_F(HelpTest, WrongLinesAreToldInBulgarian) {
    for (const auto& [line, told] : {std::pair{"", "Липсва команда."},
                                     {"singn", "Непозната команда: singn"},
                                     {"store", "Липсва команда."},
                                     {"store lst", "Непозната команда: lst"},
                                     {"sign", "Липсва ФАЙЛ."},
                                     {"sign a --detachd", "Неочаквано на командния ред: --detachd"},
                                     {"sign a --tsa", "Липсва стойност за --tsa."},
                                     {"sign a --tsa x --tsa y", "--tsa се посочва само веднъж."},
                                     {"sign a --tsa x --no-tsa", "не се съчетават."},
                                     {"settings get TSA", "Липсва ИМЕ."},
                                     {"store list MY CA", "Неочаквано на командния ред: CA"}}) {
        const auto result = Run(line);
        EXPECT_EQ(result.status, 2) << result.Summary();
        EXPECT_THAT(result.errors, AllOf(HasSubstr(told), HasSubstr("norvik --help")));
        ExpectBulgarian(result.errors);
    }
    EXPECT_THAT(Run("--version").output, testing::StartsWith("norvik "));
}

TEST_F(HelpTest, TheManualIsSetWithoutAComplaint) {
    if (!HasProgram("groff")) GTEST_SKIP() << "no groff";
    const auto set = Shell("groff -man -K utf8 -T utf8 -w w -P -cbou " + file_);
    EXPECT_EQ(set.status, 0);
    EXPECT_THAT(set.errors, IsEmpty());
    EXPECT_THAT(set.output,
                AllOf(HasSubstr("--output-folder ПАПКА"), HasSubstr("ИЗХОДЕН КОД"), HasSubstr("norvik tsa add")));
}

}  // namespace

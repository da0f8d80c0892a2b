// Help and manual come from one parser: whatever can be typed is in both, whole.

#include <iterator>
#include <regex>
#include <sstream>

#include "tests/tools/CommandTest.h"

namespace {

using namespace tests;
using testing::AllOf;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

const std::string kCommands[] = {"sign",         "verify",       "extract",      "detach",        "report",
                                 "store list",   "store import", "store remove", "settings list", "settings get",
                                 "settings set", "tsa list",     "tsa add",      "tsa remove"};

class HelpTest : public CommandTest {
  protected:
    [[nodiscard]] std::string Help(const std::string& command) const {
        std::istringstream words(command + " --help");
        const auto result = Run(std::vector<std::string>(std::istream_iterator<std::string>(words), {}));
        EXPECT_EQ(result.status, 0) << result.Summary();
        return result.output;
    }
    [[nodiscard]] static std::string Manual() {
        return ReadFile(std::filesystem::path(NORVIK_BINARY_DIR) / "man/norvik.1");
    }
};

std::vector<std::string> OptionsIn(const std::string& text) {
    static const std::regex option("--[a-z][a-z-]*");
    std::vector<std::string> found;
    for (std::sregex_iterator it(text.begin(), text.end(), option), end; it != end; ++it)
        found.push_back(it->str());
    return found;
}

TEST_F(HelpTest, EveryOptionOfEveryCommandStandsInTheManual) {
    auto manual = std::regex_replace(Manual(), std::regex("\\\\-"), "-");
    const auto top = Help("");
    for (const auto& command : kCommands) {
        EXPECT_THAT(top, HasSubstr("  " + command.substr(0, command.find(' ')) + " "));
        const auto name = "norvik " + command;
        const auto help = Help(command);
        EXPECT_THAT(help, HasSubstr("Употреба: " + name + " "));
        const auto from = manual.find(".SS \"" + name + "\"");
        ASSERT_NE(from, std::string::npos) << name;
        const auto section = manual.substr(from, manual.find("\n.S", from + 1) - from);
        ASSERT_FALSE(OptionsIn(help).empty());
        for (const auto& option : OptionsIn(help))
            EXPECT_THAT(section, HasSubstr(option)) << name;
    }
    EXPECT_EQ(Manual(), Run({"--man"}).output);
}

TEST_F(HelpTest, NoLineIsCutOrEnglish) {
    static const std::regex english("\\b(the|is|required|expected|Usage|Options|Subcommand|TEXT|REQUIRED)\\b");
    for (const auto& command : kCommands) {
        const auto help = Help(command);
        EXPECT_FALSE(std::regex_search(help, english)) << help;
        EXPECT_THAT(help, AllOf(Not(HasSubstr("...\n  ")), Not(HasSubstr("\xEF\xBF\xBD"))));
    }
    const std::pair<std::vector<std::string>, const char*> wrong[] = {
        {{}, "Липсва команда."},
        {{"singn"}, "Непозната команда: singn"},
        {{"store"}, "Липсва команда."},
        {{"store", "lst"}, "Непозната команда: lst"},
        {{"sign"}, "Липсва ФАЙЛ."},
        {{"sign", "a", "--detachd"}, "Неочаквано на командния ред: --detachd"},
        {{"sign", "a", "--tsa"}, "Липсва стойност за --tsa."},
        {{"sign", "a", "--tsa", "x", "--no-tsa"}, "не се съчетават."},
        {{"settings", "get", "TSA"}, "Липсва ИМЕ."},
        {{"store", "list", "MY", "CA"}, "Неочаквано на командния ред: CA"}};
    for (const auto& [line, told] : wrong) {
        const auto result = Run(line);
        EXPECT_EQ(result.status, 2) << result.Summary();
        EXPECT_THAT(result.errors, AllOf(HasSubstr(told), HasSubstr("norvik --help")));
        EXPECT_FALSE(std::regex_search(result.errors, english)) << result.errors;
    }
    EXPECT_THAT(Run({"--version"}).output, testing::StartsWith("norvik "));
}

TEST_F(HelpTest, TheManualIsSetWithoutAComplaint) {
    if (!HasProgram("groff")) GTEST_SKIP() << "no groff";
    const auto set = RunProgram({"groff", "-man", "-K", "utf8", "-T", "utf8", "-w", "w", "-z",
                                 std::string(NORVIK_BINARY_DIR) + "/man/norvik.1"});
    EXPECT_EQ(set.status, 0);
    EXPECT_THAT(set.errors, IsEmpty());
    const auto text = RunProgram({"groff", "-man", "-K", "utf8", "-T", "utf8", "-P", "-cbou",
                                  std::string(NORVIK_BINARY_DIR) + "/man/norvik.1"})
                          .output;
    EXPECT_THAT(text, AllOf(HasSubstr("--output-folder ПАПКА"), HasSubstr("ИЗХОДЕН КОД"), HasSubstr("norvik tsa add")));
}

}  // namespace

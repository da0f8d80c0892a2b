#include <cstdio>

#include "platform/Text.h"
#include "src/Norvik.h"
#include "src/ui/TerminalInterface.h"
#include "tests/tools/CommandTest.h"

// What an operation asks at a terminal. The answers are read in a process of its own, which prints what it got.
namespace {

using namespace tests;

class TerminalInterfaceTest : public CommandTest {
  protected:
    TerminalInterfaceTest() {
        auto second = Issue({.subject = {{"CN", "Мария\nИванова"}}});
        for (const auto* const certificate : {&pki_.signer, &second})
            question_.certificates.emplace_back(platform::CertCreateCertificateContext(certificate->Der()), true);
        question_.authorities.resize(2);
        question_.authorities[0].title = u"Първи";
        question_.authorities[1].title = u"Втори";
        question_.authorities[1].selected = true;
    }
    // The status is 1 for a decision, 0 for none.
    [[nodiscard]] int Ask() const {
        CNorvikApp::Start(std::make_unique<ui::TerminalInterface>());
        const auto decision = CNorvikApp::Current()->Interface().AskSign(question_);
        if (decision) {
            const auto authority = decision->authority ? platform::ToUtf8(decision->authority->title) : "none";
            const bool first = decision->certificate == question_.certificates[0].Context();
            std::printf("decided: %s, %s, %s.\n", first ? "first" : "second", authority.c_str(),
                        decision->detached ? "detached" : "attached");
        }
        CNorvikApp::Stop();
        return decision ? 1 : 0;
    }
    using Answers = std::vector<std::pair<std::string, std::string>>;
    // `decided` nothing: the person gave up.
    void ExpectDecision(const Answers& answers, const std::string& decided) const {
        Terminal terminal([this] { return Ask(); });
        terminal.Answer(answers);
        if (!decided.empty()) terminal.Expect("decided: " + decided);
        EXPECT_EQ(terminal.Wait(), decided.empty() ? 0 : 1) << terminal.Seen();
    }
    ui::SignQuestion question_;
};

TEST_F(TerminalInterfaceTest, TakesCertificateAuthorityAndFormByNumberAndGivesUpAtAnyQuestion) {
    const struct {
        std::string certificate, authority, form, decided;
    } cases[] = {{"1\n", "0\n", "1\n", "first, none, detached."},
                 {"2\n", "1\n", "0\n", "second, Първи, attached."},
                 {"2\n", "\n", "\n", "second, Втори, attached."},
                 {"\n", "", "", ""},
                 {"\x04", "", "", ""},
                 {"1\n", "\x03", "", ""},
                 {"1\n", "1\n", "\x04", ""}};
    for (const auto& [certificate, authority, form, decided] : cases) {
        Answers answers{{"1. Иван Петров", ""}, {"2. Мария", ""}, {"Номер: ", "3\n"}, {"Номер: ", certificate}};
        if (!authority.empty()) answers.emplace_back("Номер (Enter: 2): ", authority);
        if (!form.empty()) answers.emplace_back("Enter: 0. Номер: ", form);
        ExpectDecision(answers, decided);
    }
}

TEST_F(TerminalInterfaceTest, AsksOnlyWhatIsOpen) {
    question_.authorities.clear();
    question_.showDetachedBox = false;
    question_.detached = true;
    ExpectDecision({{"Номер: ", "1\n"}}, "first, none, detached.");
}

TEST_F(TerminalInterfaceTest, ShowsProgressOnALineThatGoesAgain) {
    Terminal terminal([] {
        auto progress = ui::TerminalInterface().ShowProgress(u"/folder/дог\aовор.pdf");
        progress->Update(1, 0);
        progress->Update(std::uint64_t{3} << 61, std::uint64_t{1} << 63);
        return 0;
    });
    EXPECT_EQ(terminal.Wait(), 0);
    EXPECT_THAT(terminal.Seen(),
                AllOf(HasSubstr("овор.pdf: 75 %\r\033[K"), Not(HasSubstr("\a")), Not(HasSubstr("/folder"))));
}

}  // namespace

#include <cstdio>

#include "platform/Text.h"
#include "src/Norvik.h"
#include "src/ui/TerminalInterface.h"
#include "tests/tools/CommandTest.h"

// What an operation asks at a terminal. The answers are read in a process of its own, which prints what it got.
namespace {

using testing::HasSubstr;
using tests::Terminal;

class TerminalInterfaceTest : public tests::CommandTest {
  protected:
    [[nodiscard]] ui::SignQuestion Question() const {
        ui::SignQuestion question;
        const auto second = tests::Issue({.subject = {{"CN", "Мария\nИванова"}}});
        for (const auto* const certificate : {&pki_.signer, &second})
            question.certificates.emplace_back(platform::CertCreateCertificateContext(certificate->Der()), true);
        question.authorities.resize(2);
        question.authorities[0].title = u"Първи";
        question.authorities[1].title = u"Втори";
        question.authorities[1].selected = true;
        return question;
    }
    // The status is 1 for a decision, 0 for none.
    static int Ask(const ui::SignQuestion& question) {
        CNorvikApp::Start(std::make_unique<ui::TerminalInterface>());
        const auto decision = CNorvikApp::Current()->Interface().AskSign(question);
        if (decision) {
            const auto authority = decision->authority ? platform::ToUtf8(decision->authority->title) : "none";
            const bool first = decision->certificate == question.certificates[0].Context();
            std::printf("decided: %s, %s, %s.\n", first ? "first" : "second", authority.c_str(),
                        decision->detached ? "detached" : "attached");
        }
        CNorvikApp::Stop();
        return decision ? 1 : 0;
    }
};

TEST_F(TerminalInterfaceTest, TakesCertificateAuthorityAndFormByNumber) {
    struct Case {
        std::string certificate, authority, form, decided;
    };
    const Case cases[] = {{"1", "0", "1", "first, none, detached."},
                          {"2", "1", "0", "second, Първи, attached."},
                          {"2", "", "", "second, Втори, attached."}};
    for (const auto& [certificate, authority, form, decided] : cases) {
        Terminal terminal([this] { return Ask(Question()); });
        ASSERT_TRUE(terminal.Expect("1. Иван Петров")) << terminal.Seen();
        ASSERT_TRUE(terminal.Expect("2. Мария")) << terminal.Seen();
        ASSERT_TRUE(terminal.Expect("Номер: "));
        terminal.Type("3\n");
        ASSERT_TRUE(terminal.Expect("Номер: ")) << "there is no third";
        terminal.Type(certificate + "\n");
        ASSERT_TRUE(terminal.Expect("Номер (Enter: 2): ")) << "the one that is marked";
        terminal.Type(authority + "\n");
        ASSERT_TRUE(terminal.Expect("Enter: 0. Номер: ")) << terminal.Seen();
        terminal.Type(form + "\n");
        EXPECT_TRUE(terminal.Expect("decided: " + decided)) << terminal.Seen();
        EXPECT_EQ(terminal.Wait(), 1);
    }
}

TEST_F(TerminalInterfaceTest, AsksOnlyWhatIsOpenAndGivesUpAtAnyQuestion) {
    auto question = Question();
    question.authorities.clear();
    question.showDetachedBox = false;
    question.detached = true;
    Terminal one([&] { return Ask(question); });
    ASSERT_TRUE(one.Expect("Номер: "));
    one.Type("1\n");
    EXPECT_TRUE(one.Expect("decided: first, none, detached.")) << one.Seen();
    EXPECT_EQ(one.Wait(), 1);

    const std::vector<std::string> given[] = {{""}, {"\x04"}, {"1\n", "\x03"}, {"1\n", "1\n", "\x04"}};
    for (const auto& keys : given) {
        Terminal terminal([this] { return Ask(Question()); });
        for (const auto& key : keys) {
            ASSERT_TRUE(terminal.Expect("омер")) << terminal.Seen();
            ASSERT_TRUE(terminal.Expect(": ")) << terminal.Seen();
            terminal.Type(key.empty() ? "\n" : key);
        }
        EXPECT_EQ(terminal.Wait(), 0) << terminal.Seen();
    }
}

TEST_F(TerminalInterfaceTest, ShowsProgressOnALineThatGoesAgain) {
    Terminal terminal([] {
        auto progress = ui::TerminalInterface().ShowProgress(u"/folder/дог\aовор.pdf");
        progress->Update(1, 0);
        progress->Update(std::uint64_t{3} << 61, std::uint64_t{1} << 63);
        return 0;
    });
    EXPECT_EQ(terminal.Wait(), 0);
    EXPECT_THAT(terminal.Seen(), HasSubstr("овор.pdf: 75 %\r\033[K"));
    EXPECT_THAT(terminal.Seen(), testing::Not(HasSubstr("\a")));
    EXPECT_THAT(terminal.Seen(), testing::Not(HasSubstr("/folder")));
}

}  // namespace

#include "tests/tools/CommandTest.h"

namespace {

using testing::HasSubstr;
using tests::Certificate;
using tests::Issue;
using tests::KeyType;
using tests::Terminal;
using tests::TestKey;

class SelectCommand : public tests::CommandTest {
  protected:
    const Certificate ca_ = Issue({.subject = {{"CN", "Издател"}}, .key = TestKey(KeyType::p256), .ca = true});
    const Certificate ivan_ = Issue({.subject = {{"CN", "Иван"}}, .key = TestKey(KeyType::p256, 1)}, ca_);
};

TEST_F(SelectCommand, OffersNumbersAndPrintsTheChoice) {
    const auto file = Document("two.pem", ca_.Pem() + ivan_.Pem()).string();
    Terminal chooses(Line({"select", "--file", file}));
    ASSERT_TRUE(chooses.Expect("1. Иван")) << chooses.Seen();
    ASSERT_TRUE(chooses.Expect("2. Издател")) << "in the reverse of the file's order";
    ASSERT_TRUE(chooses.Expect("Номер: "));
    chooses.Type("3\n");
    ASSERT_TRUE(chooses.Expect("Номер: ")) << "a number that is not there is asked again";
    chooses.Type("1\n");
    EXPECT_EQ(chooses.Wait(), 0);
    EXPECT_THAT(chooses.Seen(), HasSubstr(ivan_.Thumbprint()));

    Terminal declines(Line({"select", "--file", file, "--json"}));
    ASSERT_TRUE(declines.Expect("Номер: "));
    declines.Type("\n");
    EXPECT_EQ(declines.Wait(), 1);
    EXPECT_THAT(declines.Seen(), HasSubstr("Не е избран сертификат."));
}

TEST_F(SelectCommand, SaysWhyNothingCanBeChosen) {
    EXPECT_EQ(Run({"select", "--file", "missing.pem"}).status, 1);
    EXPECT_EQ(Run({"select", "--terminal", "--dialog"}).status, 2);
    const auto one = Document("one.pem", ivan_.Pem()).string();
    // A session of its own has no terminal.
    const auto alone = RunBelow({"setsid", "-w"}, {"select", "--terminal", "--file", one});
    EXPECT_EQ(alone.status, 1);
    EXPECT_THAT(alone.errors, HasSubstr("Няма терминал"));
    for (const auto* variable : {"DISPLAY", "WAYLAND_DISPLAY", "QT_QPA_PLATFORM"})
        profile_.Set(variable, std::nullopt);
    const auto unseen = Run({"select", "--dialog", "--file", one});
    EXPECT_EQ(unseen.status, 1);
    EXPECT_THAT(unseen.errors, HasSubstr("Няма достъпен екран")) << "the windows are there, the display is not";
}

}  // namespace

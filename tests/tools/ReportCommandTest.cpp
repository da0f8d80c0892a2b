#include "tests/tools/CommandTest.h"

namespace {

using namespace tests;

class ReportCommandTest : public CommandTest {
  protected:
    ReportCommandTest() {
        pki_.Install(profile_);
        Document("договор.txt", "the content that counts");
        Walk({{"sign --no-tsa договор.txt", 0}, {"sign --no-tsa --detached договор.txt", 0}});
        for (const auto* variable : {"DISPLAY", "WAYLAND_DISPLAY", "QT_QPA_PLATFORM"})
            profile_.Set(variable, std::nullopt);
    }
};

TEST_F(ReportCommandTest, DrawsWithoutADisplayWhateverTheSessionSays) {
    Document("out.pdf", "what stood here before");
    Walk({{"norvik settings set Print Footer 'лист %d'", 0}}, "");
    const struct {
        const char *environment, *arguments, *file, *size;
    } cases[] = {{"", "договор.txt.p7m", "договор.txt.p7m", "A4"},
                 {"DISPLAY=:4711", "договор.txt.p7m --letter", "договор.txt.p7m", "letter"},
                 {"QT_QPA_PLATFORM=xcb", "договор.txt.p7s --data договор.txt", "договор.txt.p7s", "A4"}};
    for (const auto& [environment, arguments, file, size] : cases)
        Walk(
            {{" norvik report --offline --pdf out.pdf " + std::string(arguments) + " 2>&1", 0, {"="}},
             {" pdftotext -layout out.pdf -", 0, {std::string("на файл '") + file, "Иван Петров", "Валиден", "лист 1"}},
             {" pdfinfo out.pdf | tr -s ' '", 0, {"Pages: 1\n", size}}},
            environment);
}

TEST_F(ReportCommandTest, LeavesNothingWhereItFails) {
    const auto before = FilesIn();
    Walk({{"договор.txt --pdf out.pdf", 1, {"не е подписан"}},
          {"няма.p7m --pdf out.pdf", 1, {"Няма такъв файл."}},
          {"договор.txt.p7s --data няма --pdf out.pdf", 2, {"няма"}},
          {"договор.txt.p7m", 2, {"--pdf"}},
          {"договор.txt.p7m --pdf договор.txt.p7m", 2, {"би заменил"}},
          {"договор.txt.p7s --pdf ./договор.txt", 2, {"би заменил"}},
          {"договор.txt.p7m --pdf няма/out.pdf", 1, {"няма/out.pdf"}},
          {"договор.txt.p7m --pdf /dev/full", 1, {"/dev/full"}},
          {"договор.txt.p7m --pdf .", 1, {"."}}},
         "norvik report --offline ");
    EXPECT_EQ(FilesIn(), before);
}

TEST_F(ReportCommandTest, CallsABrokenSignatureWhatItsCertificateIs) {
    Change("договор.txt.p7m", "broken.p7m");
    // Nobody knows whether the certificate is revoked.
    Walk({{"report --offline broken.p7m --pdf out.pdf && pdftotext -layout out.pdf -", 0, {"Непроверен"}}});
}

}  // namespace

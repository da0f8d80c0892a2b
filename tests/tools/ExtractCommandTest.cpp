#include "tests/tools/CommandTest.h"

namespace {

using namespace tests;

class ExtractCommandTest : public CommandTest {
  protected:
    ExtractCommandTest() {
        SignADocument();
        fs::remove("a.txt");
    }
};

TEST_F(ExtractCommandTest, TakesOutWhatWasSignedUnderTheNameThatItHad) {
    Document("b.txt", "old");
    Document("empty.txt", "");
    Walk({{"extract a.txt.p7m && cat a.txt", 0, {"=a.txt\nthe content that counts"}},
          {"extract a.txt.p7m", 2, {"a.txt вече съществува"}},
          {"extract a.txt.p7m --output b.txt && cat b.txt", 0, {"the content that counts"}},
          {"extract a.txt.p7m --output no/folder", 1},
          {"extract a.txt.p7m --output ./a.txt.p7m", 2, {"би заменил"}},
          {"detach a.txt.p7m ./a.txt.p7m", 2, {"би заменил"}},
          {"sign empty.txt && rm empty.txt", 0},
          {"verify empty.txt.p7m", 0},
          {"extract empty.txt.p7m && test -f empty.txt -a ! -s empty.txt", 0},
          {"detach empty.txt.p7m empty.txt.p7s && norvik verify empty.txt.p7s", 0}});
}

TEST_F(ExtractCommandTest, NeverGivesWhatWasNotSigned) {
    Change("a.txt.p7m", "a.txt.p7m");
    Document("x.p7m");
    Walk({{"extract a.txt.p7m", 1, {"=", "данните не са тези, които са подписани", "Данните не са извадени."}},
          {"extract a.txt.p7s", 1, {"подписът е отделен, във файла няма данни"}},
          {"extract x.p7m", 1}});
    EXPECT_THAT(FilesIn(), ElementsAre("a.txt.p7m", "a.txt.p7s", "x.p7m"));
}

// What was signed is what it is; who vouches for the signer is another matter, and told.
TEST_F(ExtractCommandTest, TellsOfACertificateThatIsNotGood) {
    fs::remove_all(profile_.Stores() / "ROOT");
    Walk({{"extract a.txt.p7m", 1, {"сертификат: НЕ Е ВЕРЕН"}}});
    EXPECT_EQ(ReadFile("a.txt"), "the content that counts");
}

TEST_F(ExtractCommandTest, DetachesASignatureThatIsStillGood) {
    Document("x.p7m");
    Walk({{"openssl pkcs7 -inform DER -in a.txt.p7m -out pem.p7m", 0}}, "");
    Walk({{"extract a.txt.p7m && rm a.txt.p7s && norvik detach a.txt.p7m a.txt.p7s", 0},
          {"verify a.txt.p7s", 0},
          {"detach pem.p7m pem.p7s && cmp pem.p7s a.txt.p7s", 0},
          {"detach a.txt.p7s b.p7s", 2},
          {"detach x.p7m b.p7s", 1, {"не е подписан или е повреден"}},
          {"detach a.txt.p7m no/folder/b.p7s", 1, {"Следният файл не може да бъде отворен:"}}});
    Document("empty.p7m", ReadFile("a.txt.p7s"));
    Walk({{"detach empty.p7m b.p7s", 1, {"във файла няма данни"}}});
    EXPECT_THAT(ReadFile("a.txt.p7s"), Not(HasSubstr("the content")));
    EXPECT_EQ(AcceptedContent("a.txt.p7s", "a.txt"), "the content that counts");
    EXPECT_FALSE(fs::exists("b.p7s"));
}

}  // namespace

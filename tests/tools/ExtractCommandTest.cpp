#include "tests/tools/CommandTest.h"

namespace {

namespace fs = std::filesystem;
using namespace tests;
using testing::AllOf;
using testing::HasSubstr;
using testing::IsEmpty;

class ExtractCommandTest : public CommandTest {
  protected:
    ExtractCommandTest() {
        pki_.Install(profile_);
        pki_.InstallCrls(profile_);
        Document("a.txt", "the content that counts");
        if (Run({"sign", "a.txt"}).status != 0 || Run({"sign", "--detached", "a.txt"}).status != 0)
            throw std::runtime_error("cannot sign: " + Log());
        fs::remove(Documents() / "a.txt");
    }
};

TEST_F(ExtractCommandTest, TakesOutWhatWasSignedUnderTheNameThatItHad) {
    Document("b.txt", "old");
    Document("empty.txt", "");
    Walk({{{"extract", "a.txt.p7m"}, 0, "a.txt\n"},
          {{"extract", "a.txt.p7m"}, 2, "a.txt вече съществува"},
          {{"extract", "a.txt.p7m", "--output", "b.txt"}, 0},
          {{"extract", "a.txt.p7m", "--output", "no/folder"}, 1},
          {{"sign", "empty.txt"}, 0}});
    EXPECT_EQ(ReadFile(Documents() / "a.txt"), "the content that counts");
    EXPECT_EQ(ReadFile(Documents() / "b.txt"), "the content that counts");
    fs::remove(Documents() / "empty.txt");
    Walk({{{"verify", "empty.txt.p7m"}, 0}, {{"extract", "empty.txt.p7m"}, 0}});
    EXPECT_EQ(fs::file_size(Documents() / "empty.txt"), 0U);
}

TEST_F(ExtractCommandTest, NeverGivesWhatWasNotSigned) {
    auto bytes = ReadFile(Documents() / "a.txt.p7m");
    bytes.at(bytes.find("the content")) ^= 1;
    Document("a.txt.p7m", bytes);
    const auto result = Run({"extract", "a.txt.p7m"});
    EXPECT_EQ(result.status, 1);
    EXPECT_THAT(result.output, IsEmpty());
    EXPECT_THAT(result.errors,
                AllOf(HasSubstr("данните не са тези, които са подписани"), HasSubstr("Данните не са извадени.")));
    EXPECT_THAT(Run({"extract", "a.txt.p7s"}).errors, HasSubstr("подписът е отделен, във файла няма данни"));
    Document("x.p7m", "words");
    EXPECT_EQ(Run({"extract", "x.p7m"}).status, 1);
    EXPECT_FALSE(fs::exists(Documents() / "x"));
    EXPECT_FALSE(fs::exists(Documents() / "a.txt"));
}

// What was signed is what it is; who vouches for the signer is another matter, and told.
TEST_F(ExtractCommandTest, TellsOfACertificateThatIsNotGood) {
    fs::remove_all(profile_.Stores() / "ROOT");
    const auto result = Run({"extract", "a.txt.p7m"});
    EXPECT_EQ(result.status, 1);
    EXPECT_THAT(result.errors, HasSubstr("сертификат: НЕ Е ВЕРЕН"));
    EXPECT_EQ(ReadFile(Documents() / "a.txt"), "the content that counts");
}

TEST_F(ExtractCommandTest, DetachesASignatureThatIsStillGood) {
    ASSERT_EQ(Run({"extract", "a.txt.p7m"}).status, 0);
    fs::remove(Documents() / "a.txt.p7s");
    EXPECT_EQ(Run({"detach", "a.txt.p7m", "a.txt.p7s"}).status, 0);
    const auto bytes = ReadFile(Documents() / "a.txt.p7s");
    EXPECT_EQ(bytes.find("the content"), std::string::npos);
    EXPECT_EQ(Run({"verify", "a.txt.p7s"}).status, 0);
    EXPECT_EQ(AcceptedContent("a.txt.p7s", "a.txt"), "the content that counts");

    fs::copy(Documents() / "a.txt.p7s", Documents() / "empty.p7m");
    Document("x.p7m", "words");
    Walk({{{"a.txt.p7s", "b.p7s"}, 2},
          {{"empty.p7m", "b.p7s"}, 1, "във файла няма данни"},
          {{"x.p7m", "b.p7s"}, 1, "не е подписан или е повреден"},
          {{"a.txt.p7m", "no/folder/b.p7s"}, 1, "Следният файл не може да бъде отворен:"}},
         {"detach"});
    EXPECT_FALSE(fs::exists(Documents() / "b.p7s"));
}

}  // namespace

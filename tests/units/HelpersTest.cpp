#include "units/Helpers.h"

#include <gtest/gtest.h>

#include "tests/support/Profile.h"
#include "units/BlankText.h"

namespace {

TEST(BlankText, IsNullOrNothingButTheSixBlanks) {
    EXPECT_TRUE(units::IsBlank(nullptr));
    EXPECT_TRUE(units::IsBlank(u""));
    EXPECT_TRUE(units::IsBlank(u"\n\t\v\f\r "));
    EXPECT_FALSE(units::IsBlank(u"\u00a0"));  // a no-break space is a character like others
    EXPECT_FALSE(units::IsBlank(u" {} "));
    EXPECT_EQ(units::Trim(u"\t a b\r\n"), u"a b");
}

TEST(NarrowText, IsReadInTheCharsetOfTheLocaleOrNotAtAll) {
    tests::Profile profile;
    for (const auto* variable : {"LC_ALL", "LC_CTYPE", "LANG"})
        profile.Set(variable, "C.UTF-8");
    EXPECT_EQ(units::WideFromNarrow(nullptr), std::nullopt);
    EXPECT_EQ(units::WideFromNarrow(""), u"");
    EXPECT_EQ(units::WideFromNarrow("Договор.pdf"), u"Договор.pdf");
    EXPECT_EQ(units::WideFromNarrow("\xC4\xEE.pdf"), std::nullopt) << "bytes that are no UTF-8";
}

TEST(ExceptionText, IsNeverLostForItsCharset) {
    EXPECT_EQ(units::WideFromWhat("Липсва"), u"Липсва");
    EXPECT_FALSE(units::WideFromWhat("\xC4\xEE.pdf").empty());
}

TEST(SourceMark, KeepsTheFileNameAlone) {
    EXPECT_EQ(units::SourceMarkedText(u"src/ProgressDlg", 138, u"text"), u"ProgressDlg:138\r\n\r\ntext");
    EXPECT_EQ(units::SourceMarkedText(u"Helpers", 1, u""), u"Helpers:1\r\n\r\n");
}

TEST(StringTable, AnswersByNumber) {
    EXPECT_EQ(units::LoadStringW(294), u"Страница %d");
    EXPECT_EQ(units::LoadStringW(99999), u"");
    EXPECT_EQ(units::FormatString1(294, u"7"), u"Страница %d") << "%d is not %1";
}

}  // namespace

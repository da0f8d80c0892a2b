#include "units/Helpers.h"

#include <gtest/gtest.h>

#include "tests/support/Profile.h"
#include "units/BlankText.h"

namespace {

using namespace units;

TEST(BlankText, IsNullOrNothingButTheSixBlanks) {
    for (const char16_t* blank : {static_cast<const char16_t*>(nullptr), u"", u"\n\t\v\f\r "})
        EXPECT_TRUE(IsBlank(blank));
    for (const char16_t* text : {u"\u00a0", u" {} "})  // a no-break space is a character like others
        EXPECT_FALSE(IsBlank(text));
    EXPECT_EQ(Trim(u"\t a b\r\n"), u"a b");
}

TEST(NarrowText, IsReadInTheCharsetOfTheLocaleOrNotAtAllButAnExceptionsTextIsNeverLost) {
    tests::Profile profile;
    for (const auto* variable : {"LC_ALL", "LC_CTYPE", "LANG"})
        profile.Set(variable, "C.UTF-8");
    EXPECT_EQ(WideFromNarrow(nullptr), std::nullopt);
    EXPECT_EQ(WideFromNarrow(""), u"");
    EXPECT_EQ(WideFromNarrow("Договор.pdf"), u"Договор.pdf");
    EXPECT_EQ(WideFromNarrow("\xC4\xEE.pdf"), std::nullopt) << "bytes that are no UTF-8";
    EXPECT_EQ(WideFromWhat("Липсва"), u"Липсва");
    EXPECT_FALSE(WideFromWhat("\xC4\xEE.pdf").empty());
}

TEST(Texts, OfTheTableAreFoundByNumberAndSourcesMarkedByTheFileNameAlone) {
    EXPECT_EQ(LoadStringW(294), u"Страница %d");
    EXPECT_EQ(LoadStringW(99999), u"");
    EXPECT_EQ(FormatString1(294, u"7"), u"Страница %d") << "%d is not %1";
    EXPECT_EQ(SourceMarkedText(u"src/ProgressDlg", 138, u"text"), u"ProgressDlg:138\r\n\r\ntext");
    EXPECT_EQ(SourceMarkedText(u"Helpers", 1, u""), u"Helpers:1\r\n\r\n");
}

}  // namespace

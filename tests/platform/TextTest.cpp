#include "platform/Text.h"

#include <gmock/gmock.h>

#include "tests/support/LastError.h"
#include "tests/support/Profile.h"

namespace {

using namespace platform;
using namespace std::string_literals;
using testing::Eq;
using testing::Optional;

TEST(Text, Utf8ReadsAsWideTextAndOnlyMalformedTextIsRefused) {
    const std::pair<std::string, std::u16string> good[] = {{"", u""},
                                                           {"a\0b"s, u"a\0b"s},
                                                           {"Подпис №1 – 5 €", u"Подпис №1 – 5 €"},
                                                           {"\xF0\x9F\x94\x91", u"🔑"},
                                                           {"\xF4\x8F\xBF\xBF", u"\xDBFF\xDFFF"},
                                                           {"\xEF\xBF\xBD", u"\uFFFD"}};
    for (const auto& [bytes, wide] : good) {
        EXPECT_EQ(ToWide(bytes), wide);
        EXPECT_EQ(ToUtf8(wide), bytes);
        EXPECT_THAT(MultiByteToWideChar(CP_UTF8, bytes), Optional(Eq(wide)));
    }
    // Overlong, overlong, a surrogate, above U+10FFFF; cut (one replacement for the started sequence), cut by the end;
    // what cannot lead, also behind a genuine replacement character.
    const std::pair<std::string, std::u16string> bad[] = {
        {"\xC0\xAF", u"\uFFFD\uFFFD"},           {"\xE0\x9F\xBF", u"\uFFFD\uFFFD\uFFFD"},
        {"\xED\xA0\x80", u"\uFFFD\uFFFD\uFFFD"}, {"\xF4\x90\x80\x80", u"\uFFFD\uFFFD\uFFFD\uFFFD"},
        {"\xF0\x9F\x94!", u"\uFFFD!"},           {"a\xE2\x82", u"a\uFFFD"},
        {"\x80\xFF", u"\uFFFD\uFFFD"},           {"\xEF\xBF\xBD\xFF", u"\uFFFD\uFFFD"}};
    for (const auto& [bytes, wide] : bad) {
        EXPECT_EQ(ToWide(bytes), wide) << testing::PrintToString(bytes);
        EXPECT_FAILS(MultiByteToWideChar(CP_UTF8, bytes), ERROR_NO_UNICODE_TRANSLATION);
    }
    EXPECT_EQ(ToUtf8(u"a\xD83D"s), "a\xEF\xBF\xBD");
    EXPECT_EQ(ToUtf8(u"\xD83Dz"s), "\xEF\xBF\xBDz");
    EXPECT_EQ(ToUtf8(u"\xDC00\xD83D\xDD11"s), "\xEF\xBF\xBD\xF0\x9F\x94\x91");
}

TEST(Text, EveryWindows1251ByteMakesTheWayThereAndBackAsTheHostsCodecSays) {
    for (int byte = 0; byte < 256; ++byte) {
        const std::string narrow(1, static_cast<char>(byte));
        const auto wide = MultiByteToWideChar(CP_1251, narrow);
        ASSERT_EQ(wide.has_value(), byte != 0x98) << byte;
        EXPECT_EQ(WideCharToMultiByte(CP_1251, wide.value_or(u"")), wide ? narrow : "") << byte;
    }
    EXPECT_THAT(MultiByteToWideChar(CP_1251, "\xCF\xEE\xE4\xEF\xE8\xF1 \xB9\x31 \x96 5 \x88 \xA8\xB8\x80\xBF"),
                Optional(Eq(u"Подпис №1 – 5 € ЁёЂї")));
    EXPECT_EQ(WideCharToMultiByte(CP_1251, u"ñ🔑я\xD83D"s), "??\xFF?");
}

TEST(Text, TheThreadsCodePageFollowsTheEnvironment) {
    tests::Profile profile;
    using Value = std::optional<std::string>;
    const auto speak = [&](const Value& all, const Value& type, const Value& lang) {
        profile.Set("LC_ALL", all);
        profile.Set("LC_CTYPE", type);
        profile.Set("LANG", lang);
        return MultiByteToWideChar(CP_THREAD_ACP, "\xD0\x9F");
    };
    EXPECT_THAT(speak({}, {}, {}), Optional(Eq(u"П")));
    EXPECT_THAT(speak("C", {}, "bg_BG.CP1251"), Optional(Eq(u"П")));
    EXPECT_THAT(speak("", "bg_BG.CP1251", "C.UTF-8"), Optional(Eq(u"Рџ")));
    EXPECT_THAT(speak({}, "", "bg_BG.ISO-8859-5"), Optional(Eq(u"а\u009F")));
    EXPECT_EQ(WideCharToMultiByte(CP_THREAD_ACP, u"Ж€я"), "\xB6?\xEF");
    EXPECT_EQ(speak({}, {}, "ja_JP.EUC-JP"), std::nullopt);  // a started character without its end
    EXPECT_THAT(MultiByteToWideChar(CP_THREAD_ACP, "\xC6\xFC\xCB\xDC"), Optional(Eq(u"日本")));
    EXPECT_EQ(speak({}, {}, "xx_XX.no-such-charset"), std::nullopt);
}

TEST(Text, TheShortDateFollowsTheUsersLocale) {
    tests::Profile profile;
    profile.Set("LC_ALL", std::nullopt);
    for (const char* locale : {"bg_BG.UTF-8", "bg_BG", "C", "C.UTF-8", "POSIX", "xx_YY.UTF-8"}) {
        profile.Set("LC_TIME", locale);
        EXPECT_EQ(GetDateFormatW(2024, 3, 1), *locale == 'b' ? u"01.03.2024 г." : u"2024-03-01") << locale;
    }
    profile.Set("LC_ALL", "C");
    EXPECT_EQ(GetDateFormatW(1601, 12, 31), u"1601-12-31");
}

TEST(Text, InstalledLocalesGiveTheirDateAndCharset) {
#ifdef __SANITIZE_ADDRESS__
    GTEST_SKIP() << "the C library itself loses memory when it reads LOCPATH";
#endif
    tests::Profile profile;
    const auto folder = profile.Folder() / "locales";
    std::filesystem::create_directory(folder);
    const std::string german = (folder / "de_DE.UTF-8").string(), russian = (folder / "ru_RU").string();
    if (std::system(("localedef -i de_DE -f UTF-8 " + german + " && localedef -i ru_RU -f KOI8-R " + russian).c_str()))
        GTEST_SKIP() << "localedef cannot make locales here";
    profile.Set("LOCPATH", folder.string());
    profile.Set("LC_ALL", "de_DE.UTF-8");
    EXPECT_EQ(GetDateFormatW(2024, 3, 1), u"01.03.2024");
    profile.Set("LC_ALL", "ru_RU");  // its charset is told by the locale itself, not by its name
    EXPECT_THAT(MultiByteToWideChar(CP_THREAD_ACP, "\xF0"), Optional(Eq(u"П")));
}

TEST(Text, ANameOnOneLineCannotCommandATerminal) {
    EXPECT_EQ(OneLineUtf8(u"Иван\r\nПетров\x1B[2J\x7F\x9B|\x061C\x200F\x2028\x202E\x2066|и"),
              "Иван\uFFFD\uFFFDПетров\uFFFD[2J\uFFFD\uFFFD|\uFFFD\uFFFD\uFFFD\uFFFD\uFFFD|и");
}

}  // namespace

#include <gtest/gtest.h>

#include "tests/support/Profile.h"
#include "toolkit/CkDateTimeW.h"
#include "toolkit/ClsDateTime.h"

namespace toolkit {
namespace {

constexpr const char* kCleared = "1601-01-01T00:00:00Z";

TEST(DateTime, EveryFormIsReadAsTheMomentItNames) {
    const struct {
        const char *text, *utc;
        bool whole;
    } forms[] = {
        {"240301101500Z", "2024-03-01T10:15:00Z", true},
        {" 240301101500Z\r\n", "2024-03-01T10:15:00Z", true},
        {"701231235959Z", "1970-12-31T23:59:59Z", true},
        {"691231235959Z", "2069-12-31T23:59:59Z", true},
        {"710101000000Z", "1971-01-01T00:00:00Z", true},
        {"991231235960Z", "2000-01-01T00:00:00Z", true},
        {"241301101500Z", kCleared, false},
        {"2024030110150", kCleared, false},
        {"20240301101500.123Z", "2024-03-01T10:15:00Z", true},
        {"20240301101500Z", "2024-03-01T00:00:00Z", false},
        {"20240301101500.12Z", "2024-03-01T00:00:00Z", false},
        {"20240301T101500.12Z", "2024-03-01T10:15:00Z", true},
        {"20230229101500.123Z", kCleared, false},
        {"2024-03-01T10:15:00Z", "2024-03-01T10:15:00Z", true},
        {"2024-3-1T1:5:9", "2024-03-01T01:05:09Z", true},
        {"2024-03-01T10:15", "2024-03-01T10:15:00Z", true},
        {"20240301T101500", "2024-03-01T10:15:00Z", true},
        {"2024-03-01T00:15:00+02:00", "2024-02-29T22:15:00Z", true},
        {"2024-12-31T23:15:00-0130", "2025-01-01T00:45:00Z", true},
        {"2024-03-01T10:15:00.5+03", "2024-03-01T07:15:00Z", true},
        {"2024-03-01T10:15:00+3", "2024-03-01T00:00:00Z", false},
        {"2024-03-01T25:15:00", "2024-03-01T00:00:00Z", false},
        {"2024-03-01Tnoon", "2024-03-01T00:00:00Z", false},
        {"2024-03-01", "2024-03-01T00:00:00Z", false},
        {"20240301", "2024-03-01T00:00:00Z", false},
        {"2024-02-30T10:15:00", kCleared, false},
        {"10:15:00", kCleared, false},
        {"T10:15:00", kCleared, false},
        {"", kCleared, false},
        {"0000-00-00T00:00:00Z", kCleared, false},
        {"9999-12-31T23:59:59-12:00", "10000-01-01T11:59:59Z", true},
    };
    for (const auto& [text, utc, whole] : forms) {
        ClsDateTime date;
        date.SetFromUnixTime(false, 1);
        EXPECT_EQ(date.SetFromTimestamp(text), whole) << text;
        EXPECT_EQ(date.GetAsTimestamp(false), utc) << text;
    }
}

TEST(DateTime, LocalAnswersStandOnTheWallClockOfThatMoment) {
    tests::Profile profile;
    const struct {
        const char *zone, *utc, *local;
        std::int64_t distance;
    } cases[] = {{"EET-2EEST,M3.5.0/3,M10.5.0/4", "2024-03-01T22:15:00Z", "2024-03-02T00:15:00+02:00", 7200},
                 {"EET-2EEST,M3.5.0/3,M10.5.0/4", "2024-07-01T08:15:00Z", "2024-07-01T11:15:00+03:00", 10800},
                 {"<-0330>3:30", "2024-07-01T01:15:00Z", "2024-06-30T21:45:00-03:30", -12600},
                 {"UTC0", "1969-12-31T23:59:59Z", "1969-12-31T23:59:59+00:00", 0}};
    for (const auto& c : cases) {
        profile.Set("TZ", c.zone);
        ClsDateTime date, back;
        ASSERT_TRUE(date.SetFromTimestamp(c.utc));
        EXPECT_EQ(date.GetAsTimestamp(true), c.local);
        EXPECT_EQ(date.GetAsUnixTime64(true) - date.GetAsUnixTime64(false), c.distance) << c.zone;
        EXPECT_EQ(date.GetAsFileTime(true) - date.GetAsFileTime(false),
                  static_cast<platform::FILETIME>(c.distance) * platform::kFileTimeUnitsPerSecond);
        ASSERT_TRUE(back.SetFromTimestamp(date.GetAsTimestamp(true)));
        EXPECT_EQ(back.GetAsTimestamp(false), c.utc);
    }
}

TEST(DateTime, CountsSecondsIn32BitsWhereItSaysSo) {
    ClsDateTime date;
    date.SetFromUnixTime(true, (std::int64_t{7} << 32) + 1'709'288'100);
    EXPECT_EQ(date.GetAsTimestamp(false), "2024-03-01T10:15:00Z") << "only the low half counts, and nothing is shifted";
    date.SetFromUnixTime(true, 4'000'000'000);
    EXPECT_EQ(date.GetAsTimestamp(false), "2096-10-02T07:06:40Z");
    ASSERT_TRUE(date.SetFromTimestamp("2200-01-01T00:00:00Z"));
    EXPECT_EQ(date.GetAsUnixTime64(false), 7'258'118'400);
    EXPECT_EQ(date.GetAsUnixTime(false), 7'258'118'400 % (std::int64_t{1} << 32));
}

TEST(DateTime, KeepsAFileTimeToTheMillisecond) {
    CkDateTimeW date;
    date.SetFromFileTime(true, 133'537'617'001'239'999);
    EXPECT_EQ(date.GetAsFileTime(false), 133'537'617'001'230'000U);
    EXPECT_EQ(date.GetAsUnixTime(false), 1'709'288'100);
    EXPECT_EQ(std::u16string(date.GetAsTimestamp(false)), u"2024-03-01T10:15:00Z");
    ASSERT_FALSE(date.SetFromTimestamp(u"0900-01-01"));
    EXPECT_EQ(date.GetAsFileTime(false), 0U) << "before the count starts";
    date.SetFromFileTime(false, ~platform::FILETIME{0});
    EXPECT_EQ(std::u16string(date.GetAsTimestamp(false)), u"30828-09-14T02:48:05Z")
        << "the last that the count can hold";
}

}  // namespace
}  // namespace toolkit

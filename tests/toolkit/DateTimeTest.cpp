#include <gtest/gtest.h>

#include "tests/support/Corpora.h"
#include "tests/support/Profile.h"
#include "toolkit/CkDateTimeW.h"
#include "toolkit/ClsDateTime.h"

namespace toolkit {
namespace {

TEST(DateTime, EveryFormIsReadAsTheMomentItNames) {
    for (const auto& form : tests::TestData("toolkit/dates.tsv")) {
        for (const std::string& text : {form[0], " " + form[0] + "\r\n"}) {
            ClsDateTime date;
            date.SetFromUnixTime(false, 1);
            EXPECT_EQ(date.SetFromTimestamp(text), form[2] == "yes") << text;
            EXPECT_EQ(date.GetAsTimestamp(false), form[1]) << text;
        }
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
    for (const auto& [zone, utc, local, distance] : cases) {
        profile.Set("TZ", zone);
        ClsDateTime date, back;
        ASSERT_TRUE(date.SetFromTimestamp(utc) && back.SetFromTimestamp(local));
        EXPECT_EQ(date.GetAsTimestamp(true), local);
        EXPECT_EQ(back.GetAsTimestamp(false), utc);
        EXPECT_EQ(date.GetAsUnixTime64(true) - date.GetAsUnixTime64(false), distance) << zone;
        EXPECT_EQ(date.GetAsFileTime(true) - date.GetAsFileTime(false),
                  static_cast<platform::FILETIME>(distance) * platform::kFileTimeUnitsPerSecond);
    }
}

TEST(DateTime, CountsSecondsIn32BitsWhereItSaysSo) {
    ClsDateTime date;
    date.SetFromUnixTime(true, (std::int64_t{7} << 32) + 4'000'000'000);
    EXPECT_EQ(date.GetAsTimestamp(false), "2096-10-02T07:06:40Z") << "only the low half counts, and nothing is shifted";
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
    EXPECT_EQ(std::u16string(date.GetAsTimestamp(false)), u"30828-09-14T02:48:05Z") << "the last that it can hold";
}

}  // namespace
}  // namespace toolkit

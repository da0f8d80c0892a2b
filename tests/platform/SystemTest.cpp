#include "platform/System.h"

#include <gmock/gmock.h>

#include <array>
#include <set>

#include "platform/Text.h"
#include "tests/platform/Child.h"
#include "tests/support/LastError.h"
#include "tests/support/Profile.h"

namespace {

using namespace platform;
using tests::ModeOf;
namespace fs = std::filesystem;

TEST(System, AUuidIsRandomVersionFourInLowerCase) {
    std::set<std::u16string> seen;
    for (int i = 0; i < 100; ++i)
        seen.insert(UuidCreate());
    EXPECT_EQ(seen.size(), 100u);
    for (const std::u16string& uuid : seen)
        EXPECT_THAT(ToUtf8(uuid),
                    testing::MatchesRegex("[0-9a-f]{8}-[0-9a-f]{4}-4[0-9a-f]{3}-[89ab][0-9a-f]{3}-[0-9a-f]{12}"));
}

TEST(System, MomentsAreTheDatesThatTheCalendarSays) {
    const std::pair<FILETIME, std::array<int, 8>> cases[] = {
        {0, {1601, 1, 1, 1, 0, 0, 0, 0}},
        {kFileTimeOfUnixEpoch - 1, {1969, 12, 3, 31, 23, 59, 59, 999}},
        {kFileTimeOfUnixEpoch, {1970, 1, 4, 1, 0, 0, 0, 0}},
        {FileTimeFromUnix(951782400) + 1230000, {2000, 2, 2, 29, 0, 0, 0, 123}},
        {FileTimeFromUnix(4107542399), {2100, 2, 0, 28, 23, 59, 59, 0}},
        {FileTimeFromUnix(4107542400), {2100, 3, 1, 1, 0, 0, 0, 0}},
        {FileTimeFromUnix(1709209845), {2024, 2, 4, 29, 12, 30, 45, 0}},
        {FileTimeFromUnix(253402300799), {9999, 12, 5, 31, 23, 59, 59, 0}},
    };
    for (const auto& [moment, fields] : cases) {
        const auto time = FileTimeToSystemTime(moment);
        EXPECT_EQ((std::array<int, 8>{time.wYear, time.wMonth, time.wDayOfWeek, time.wDay, time.wHour, time.wMinute,
                                      time.wSecond, time.wMilliseconds}),
                  fields);
    }
}

TEST(System, LocalTimeKnowsDaylightSavingOfTheMoment) {
    tests::Profile profile;
    const auto hours = [&](std::int64_t unix, const char* zone = "EET-2EEST,M3.5.0/3,M10.5.0/4") {
        profile.Set("TZ", zone);
        const FILETIME moment = FileTimeFromUnix(unix);
        return static_cast<std::int64_t>(FileTimeToLocalFileTime(moment) - moment) / 36'000'000'000;
    };
    EXPECT_EQ(hours(1705276800), 2);  // 2024-01-15
    EXPECT_EQ(hours(1721001600), 3);  // 2024-07-15
    EXPECT_EQ(hours(1711846799), 2);  // a second before the change
    EXPECT_EQ(hours(1711846800), 3);
    EXPECT_EQ(hours(1705276800, "UTC+5"), -5);
    EXPECT_EQ(FileTimeToLocalFileTime(0), 0u) << "a moment that has no local time must not wrap around";
}

TEST(System, TheUsersFoldersFollowXdgAndIgnoreRelativeValues) {
    tests::Profile profile;
    EXPECT_EQ(DataFolder(), profile.Folder() / "data/norvik");
    EXPECT_EQ(ConfigFolder(), profile.Folder() / "config/norvik");
    EXPECT_EQ(MachineFolder(), profile.Folder() / "machine");
    profile.Set("XDG_DATA_HOME", "relative");
    profile.Set("XDG_CONFIG_HOME", "");
    profile.Set("NORVIK_MACHINE_DIR", std::nullopt);
    EXPECT_EQ(DataFolder(), profile.Folder() / "home/.local/share/norvik");
    EXPECT_EQ(ConfigFolder(), profile.Folder() / "home/.config/norvik");
    EXPECT_EQ(MachineFolder(), "/etc/norvik");
    profile.Set("HOME", std::nullopt);
    EXPECT_EQ(DataFolder(), "");
    EXPECT_EQ(ConfigFolder(), "");
}

class TempPath : public testing::Test {
  protected:
    // A folder that everybody may use, like /tmp, as $TMPDIR.
    void ShareTemp() {
        fs::create_directory(shared);
        chmod(shared.c_str(), 01777);
        profile.Set("TMPDIR", shared.string());
    }
    static void ExpectRefused() { EXPECT_FAILS(GetTempPathW(), ERROR_ACCESS_DENIED); }

    tests::Profile profile;
    const fs::path shared = profile.Folder() / "shared", own = shared / ("norvik-" + std::to_string(geteuid()));
};

TEST_F(TempPath, IsTheUsersOwnFolderWhereOneIsNamed) {
    EXPECT_EQ(GetTempPathW(), profile.Folder() / "tmp");
    for (const std::string& unusable : {(profile.Folder() / "missing").string(), std::string("relative")}) {
        profile.Set("TMPDIR", unusable);
        EXPECT_EQ(GetTempPathW(), profile.Folder() / "runtime");
    }
}

TEST_F(TempPath, IsAPrivateFolderBelowASharedOne) {
    ShareTemp();
    for (int time = 0; time < 3; ++time) {
        EXPECT_EQ(GetTempPathW(), own);
        EXPECT_EQ(ModeOf(own), 0700u);
        if (time == 1) chmod(own.c_str(), 0755);
    }
}

TEST_F(TempPath, RefusesWhatSomebodyElseCouldHavePrepared) {
    ShareTemp();
    fs::create_directory_symlink(profile.Folder() / "home", own);
    ExpectRefused();
    fs::remove(own);
    profile.Write(own, "a file");
    ExpectRefused();
    fs::remove(own);
    fs::create_directory(own);
    chmod(own.c_str(), 0777);
    ExpectRefused();
    EXPECT_EQ(ModeOf(own), 0777u);
    chmod(shared.c_str(), 0777);  // without the sticky bit anybody can exchange the folder later
    ExpectRefused();
}

TEST_F(TempPath, RefusesAnotherUsersFolder) {
    if (geteuid() != 0) GTEST_SKIP() << "only root can give a folder away";
    const auto giveAway = [](const fs::path& folder) { ASSERT_EQ(chown(folder.c_str(), 12345, 12345), 0); };
    ShareTemp();
    fs::create_directory(own);
    giveAway(own);
    chmod(own.c_str(), 0700);
    ExpectRefused();
    giveAway(shared);
    fs::remove(own);
    ExpectRefused();
    profile.Set("TMPDIR", (profile.Folder() / "tmp").string());
    giveAway(profile.Folder() / "tmp");
    ExpectRefused();
}

}  // namespace

#include "platform/System.h"

#include <gmock/gmock.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <set>

#include "platform/Error.h"
#include "platform/Text.h"
#include "tests/support/Profile.h"

namespace platform {
namespace {

namespace fs = std::filesystem;

TEST(System, AUuidIsRandomVersionFourInLowerCase) {
    std::set<std::u16string> seen;
    for (int i = 0; i < 100; ++i) {
        seen.insert(UuidCreate());
        EXPECT_THAT(ToUtf8(UuidCreate()),
                    testing::MatchesRegex("[0-9a-f]{8}-[0-9a-f]{4}-4[0-9a-f]{3}-[89ab][0-9a-f]{3}-[0-9a-f]{12}"));
    }
    EXPECT_EQ(seen.size(), 100u);
}

TEST(System, MomentsAreTheDatesThatTheCalendarSays) {
    const struct {
        FILETIME moment;
        std::array<int, 8> fields;
    } cases[] = {
        {0, {1601, 1, 1, 1, 0, 0, 0, 0}},
        {kFileTimeOfUnixEpoch - 1, {1969, 12, 3, 31, 23, 59, 59, 999}},
        {kFileTimeOfUnixEpoch, {1970, 1, 4, 1, 0, 0, 0, 0}},
        {FileTimeFromUnix(951782400) + 1230000, {2000, 2, 2, 29, 0, 0, 0, 123}},
        {FileTimeFromUnix(4107542399), {2100, 2, 0, 28, 23, 59, 59, 0}},
        {FileTimeFromUnix(4107542400), {2100, 3, 1, 1, 0, 0, 0, 0}},
        {FileTimeFromUnix(1709209845), {2024, 2, 4, 29, 12, 30, 45, 0}},
        {FileTimeFromUnix(253402300799), {9999, 12, 5, 31, 23, 59, 59, 0}},
    };
    for (const auto& [moment, f] : cases) {
        const auto time = FileTimeToSystemTime(moment);
        EXPECT_EQ((std::array{time.wYear, time.wMonth, time.wDayOfWeek, time.wDay, time.wHour, time.wMinute,
                              time.wSecond, time.wMilliseconds}),
                  f);
    }
}

TEST(System, LocalTimeKnowsDaylightSavingOfTheMoment) {
    tests::Profile profile;
    profile.Set("TZ", "EET-2EEST,M3.5.0/3,M10.5.0/4");
    const auto hours = [](std::int64_t unix) {
        const FILETIME moment = FileTimeFromUnix(unix);
        return static_cast<std::int64_t>(FileTimeToLocalFileTime(moment) - moment) / 36'000'000'000;
    };
    EXPECT_EQ(hours(1705276800), 2);  // 2024-01-15
    EXPECT_EQ(hours(1721001600), 3);  // 2024-07-15
    EXPECT_EQ(hours(1711846799), 2);  // a second before the change
    EXPECT_EQ(hours(1711846800), 3);
    profile.Set("TZ", "UTC+5");
    EXPECT_EQ(hours(1705276800), -5);
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

mode_t ModeOf(const fs::path& path) {
    struct stat status {};
    return lstat(path.c_str(), &status) == 0 ? status.st_mode & 07777 : 0;
}

class TempPath : public testing::Test {
  protected:
    // A folder that everybody may use, like /tmp, as $TMPDIR.
    fs::path ShareTemp() {
        const auto shared = profile.Folder() / "shared";
        fs::create_directory(shared);
        chmod(shared.c_str(), 01777);
        profile.Set("TMPDIR", shared.string());
        return shared;
    }
    void ExpectRefused() {
        SetLastError(0);
        EXPECT_EQ(GetTempPathW(), "");
        EXPECT_EQ(GetLastError(), ERROR_ACCESS_DENIED);
    }
    tests::Profile profile;
    const std::string own = "norvik-" + std::to_string(geteuid());
};

TEST_F(TempPath, IsTheUsersOwnFolderWhereOneIsNamed) {
    EXPECT_EQ(GetTempPathW(), profile.Folder() / "tmp");
    profile.Set("TMPDIR", (profile.Folder() / "missing").string());
    EXPECT_EQ(GetTempPathW(), profile.Folder() / "runtime");
    profile.Set("TMPDIR", "relative");
    EXPECT_EQ(GetTempPathW(), profile.Folder() / "runtime");
}

TEST_F(TempPath, IsAPrivateFolderBelowASharedOne) {
    const auto shared = ShareTemp();
    for (int time = 0; time < 2; ++time) {
        EXPECT_EQ(GetTempPathW(), shared / own);
        EXPECT_EQ(ModeOf(shared / own), 0700u);
    }
    chmod((shared / own).c_str(), 0755);
    EXPECT_EQ(GetTempPathW(), shared / own);
    EXPECT_EQ(ModeOf(shared / own), 0700u);
}

TEST_F(TempPath, RefusesWhatSomebodyElseCouldHavePrepared) {
    const auto shared = ShareTemp();
    const auto trap = shared / own;
    fs::create_directory_symlink(profile.Folder() / "home", trap);
    ExpectRefused();
    fs::remove(trap);
    profile.Write("shared/" + own, "a file");
    ExpectRefused();
    fs::remove(trap);
    fs::create_directory(trap);
    chmod(trap.c_str(), 0777);
    ExpectRefused();
    EXPECT_EQ(ModeOf(trap), 0777u);
    chmod(shared.c_str(), 0777);  // without the sticky bit anybody can exchange the folder later
    ExpectRefused();
}

TEST_F(TempPath, RefusesAnotherUsersFolder) {
    if (geteuid() != 0) GTEST_SKIP() << "only root can give a folder away";
    const auto shared = ShareTemp();
    const auto trap = shared / own;
    fs::create_directory(trap);
    ASSERT_EQ(chown(trap.c_str(), 12345, 12345), 0);
    chmod(trap.c_str(), 0700);
    ExpectRefused();
    ASSERT_EQ(chown(shared.c_str(), 12345, 12345), 0);
    fs::remove(trap);
    ExpectRefused();
    profile.Set("TMPDIR", (profile.Folder() / "tmp").string());
    ASSERT_EQ(chown((profile.Folder() / "tmp").c_str(), 12345, 12345), 0);
    ExpectRefused();
}

}  // namespace
}  // namespace platform

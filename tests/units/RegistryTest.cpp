#include "units/Registry.h"

#include <gtest/gtest.h>

#include "tests/support/Profile.h"

namespace {

constexpr auto kPath = u"software\\tessaly\\Tessaly Norvik\\Verification";

class Settings : public testing::Test {
  protected:
    // What stands in the store itself.
    static platform::RegistryValue Stored(std::u16string_view name) {
        platform::RegistryKey key;
        platform::RegistryValue value;
        if (platform::RegOpenKeyExW(platform::Hive::HKEY_CURRENT_USER, kPath, key) == platform::ERROR_SUCCESS)
            platform::RegQueryValueExW(key, name, value);
        return value;
    }
    static bool IsStored(std::u16string_view name) { return Stored(name).type != 0; }

    tests::Profile profile;
    CRegistry registry;
};

TEST_F(Settings, AMissingNumberIsStoredWithItsDefaultAndAMissingTextIsNot) {
    ASSERT_TRUE(registry.Open(kPath, true));
    EXPECT_EQ(registry.ReadDword(u"UseLocalCRL"), 0u);
    EXPECT_EQ(registry.ReadDword(u"NTPUse", 0x01020384), 0x01020384u);
    EXPECT_EQ(Stored(u"UseLocalCRL").type, platform::REG_DWORD);
    EXPECT_EQ(Stored(u"UseLocalCRL").data, platform::Bytes(4));
    EXPECT_EQ(Stored(u"NTPUse").data, (platform::Bytes{0x84, 0x03, 0x02, 0x01}));
    EXPECT_EQ(registry.ReadDword(u"NTPUse", 0), 0x01020384u) << "the stored value rules from then on";

    EXPECT_EQ(registry.ReadString(u"HashAlg", u"SHA256"), u"SHA256");
    EXPECT_EQ(registry.ReadString(u"LocalCRL"), u"");
    EXPECT_FALSE(IsStored(u"HashAlg"));
    EXPECT_FALSE(IsStored(u"LocalCRL"));
}

TEST_F(Settings, TextsAreStoredInUtf16WithTheTerminatorCounted) {
    ASSERT_TRUE(registry.Open(kPath, true));
    EXPECT_TRUE(registry.WriteString(u"HashAlg", u"SHA256"));
    EXPECT_EQ(Stored(u"HashAlg").type, platform::REG_SZ);
    EXPECT_EQ(Stored(u"HashAlg").data.size(), 14u);
    EXPECT_TRUE(registry.WriteString(u"Empty", u""));
    EXPECT_EQ(Stored(u"Empty").data.size(), 2u);
    EXPECT_EQ(registry.ReadString(u"Empty", u"default"), u"");
    const std::u16string footer = u"Страница %d 🔑";
    EXPECT_TRUE(registry.WriteString(u"Footer", footer));
    EXPECT_EQ(registry.ReadString(u"Footer"), footer);
    EXPECT_TRUE(registry.WritePassword(u"тайна"));
    EXPECT_EQ(Stored(u"Password").type, platform::REG_BINARY);
    EXPECT_EQ(Stored(u"Password").data.size(), 12u);
}

TEST_F(Settings, ValuesThatOthersWroteWronglyGiveTheDefaultAndStayAsTheyAre) {
    ASSERT_TRUE(registry.Open(kPath, true));
    const auto& key = registry.GetKey();
    const platform::Bytes unterminated = {'a', 0, 'b', 0, 'c'}, cut = {'a', 0, 0, 0, 'b', 0}, three = {1, 0, 0};
    platform::RegSetValueExW(key, u"Unterminated", platform::REG_SZ, unterminated);
    platform::RegSetValueExW(key, u"Inner", platform::REG_SZ, cut);
    platform::RegSetValueExW(key, u"Short", platform::REG_DWORD, three);
    ASSERT_TRUE(registry.WriteString(u"Text", u"5"));
    ASSERT_TRUE(registry.WriteDword(u"Number", 5));
    EXPECT_EQ(registry.ReadString(u"Unterminated"), u"ab");
    EXPECT_EQ(registry.ReadString(u"Inner"), u"a");
    EXPECT_EQ(registry.ReadString(u"Number", u"default"), u"default");
    EXPECT_EQ(registry.ReadDword(u"Text", 7), 7u);
    EXPECT_EQ(registry.ReadDword(u"Short", 7), 7u);
    EXPECT_EQ(Stored(u"Short").data, three);
    EXPECT_EQ(Stored(u"Text").type, platform::REG_SZ);
}

TEST_F(Settings, WithoutAnOpenKeyEverythingIsADefaultAndNothingIsWritten) {
    const auto expectDefaults = [&] {
        EXPECT_EQ(registry.ReadString(u"HashAlg", u"SHA256"), u"SHA256");
        EXPECT_EQ(registry.ReadDword(u"UseLocalCRL", 3), 3u);
        EXPECT_FALSE(registry.WriteString(u"HashAlg", u"SHA1"));
        EXPECT_FALSE(registry.WriteDword(u"UseLocalCRL", 1));
        EXPECT_FALSE(registry.WritePassword(u"x"));
        EXPECT_FALSE(registry.GetKey());
    };
    expectDefaults();
    EXPECT_FALSE(registry.Open(kPath, false)) << "a user who never opened the settings";
    expectDefaults();
    ASSERT_TRUE(registry.Open(kPath, true));
    registry.Close();
    expectDefaults();
    EXPECT_FALSE(IsStored(u"UseLocalCRL"));
    ASSERT_TRUE(registry.Open(kPath, false));
    EXPECT_FALSE(registry.Open(u"software\\missing", false));
    expectDefaults();  // the key opened before is not held on to
}

TEST_F(Settings, AReadFailureGivesTheDefaultUnwritten) {
    ASSERT_TRUE(registry.Open(kPath, true));
    const auto file = profile.Folder() / "config/norvik/registry.db";
    const std::string garbage = "no database" + std::string(5000, '.');
    profile.Write("config/norvik/registry.db", garbage);
    EXPECT_EQ(registry.ReadDword(u"UseLocalCRL", 1), 1u);
    EXPECT_EQ(registry.ReadString(u"HashAlg", u"SHA256"), u"SHA256");
    EXPECT_EQ(tests::ReadFile(file), garbage);
}

}  // namespace

#include "units/Registry.h"

#include <gtest/gtest.h>

#include "tests/support/Profile.h"

namespace {

using namespace platform;

constexpr auto kPath = u"software\\tessaly\\Tessaly Norvik\\Verification";

class Settings : public testing::Test {
  protected:
    // What stands in the store itself.
    static RegistryValue Stored(std::u16string_view name) {
        RegistryKey key;
        RegistryValue value;
        if (RegOpenKeyExW(Hive::HKEY_CURRENT_USER, kPath, key) == ERROR_SUCCESS) RegQueryValueExW(key, name, value);
        return value;
    }
    static bool IsStored(std::u16string_view name) { return Stored(name).type != 0; }
    static void ExpectStored(std::u16string_view name, std::uint32_t type, std::size_t size) {
        EXPECT_EQ(Stored(name).type, type);
        EXPECT_EQ(Stored(name).data.size(), size);
    }
    void ExpectDefaults() {
        EXPECT_EQ(registry.ReadString(u"HashAlg", u"SHA256"), u"SHA256");
        EXPECT_EQ(registry.ReadDword(u"UseLocalCRL", 3), 3u);
        EXPECT_FALSE(registry.WriteString(u"HashAlg", u"SHA1"));
        EXPECT_FALSE(registry.WriteDword(u"UseLocalCRL", 1));
        EXPECT_FALSE(registry.WritePassword(u"x"));
        EXPECT_FALSE(registry.GetKey());
    }

    tests::Profile profile;
    CRegistry registry;
};

TEST_F(Settings, AMissingNumberIsStoredWithItsDefaultAndAMissingTextIsNot) {
    ASSERT_TRUE(registry.Open(kPath, true));
    EXPECT_EQ(registry.ReadDword(u"UseLocalCRL"), 0u);
    EXPECT_EQ(registry.ReadDword(u"NTPUse", 0x01020384), 0x01020384u);
    EXPECT_EQ(Stored(u"UseLocalCRL").type, REG_DWORD);
    EXPECT_EQ(Stored(u"UseLocalCRL").data, Bytes(4));
    EXPECT_EQ(Stored(u"NTPUse").data, (Bytes{0x84, 0x03, 0x02, 0x01}));
    EXPECT_EQ(registry.ReadDword(u"NTPUse", 0), 0x01020384u) << "the stored value rules from then on";

    EXPECT_EQ(registry.ReadString(u"HashAlg", u"SHA256"), u"SHA256");
    EXPECT_EQ(registry.ReadString(u"LocalCRL"), u"");
    EXPECT_FALSE(IsStored(u"HashAlg") || IsStored(u"LocalCRL"));
}

TEST_F(Settings, TextsAreStoredInUtf16WithTheTerminatorCounted) {
    ASSERT_TRUE(registry.Open(kPath, true));
    const std::tuple<const char16_t*, std::u16string, std::size_t> texts[] = {
        {u"HashAlg", u"SHA256", 14}, {u"Empty", u"", 2}, {u"Footer", u"Страница %d 🔑", 30}};
    for (const auto& [name, text, size] : texts) {
        EXPECT_TRUE(registry.WriteString(name, text));
        ExpectStored(name, REG_SZ, size);
        EXPECT_EQ(registry.ReadString(name, u"default"), text);
    }
    EXPECT_TRUE(registry.WritePassword(u"тайна"));
    ExpectStored(u"Password", REG_BINARY, 12);
}

TEST_F(Settings, ValuesThatOthersWroteWronglyGiveTheDefaultAndStayAsTheyAre) {
    ASSERT_TRUE(registry.Open(kPath, true));
    const Bytes unterminated = {'a', 0, 'b', 0, 'c'}, cut = {'a', 0, 0, 0, 'b', 0}, three = {1, 0, 0};
    RegSetValueExW(registry.GetKey(), u"Unterminated", REG_SZ, unterminated);
    RegSetValueExW(registry.GetKey(), u"Inner", REG_SZ, cut);
    RegSetValueExW(registry.GetKey(), u"Short", REG_DWORD, three);
    ASSERT_TRUE(registry.WriteString(u"Text", u"5"));
    ASSERT_TRUE(registry.WriteDword(u"Number", 5));
    EXPECT_EQ(registry.ReadString(u"Unterminated"), u"ab");
    EXPECT_EQ(registry.ReadString(u"Inner"), u"a");
    EXPECT_EQ(registry.ReadString(u"Number", u"default"), u"default");
    EXPECT_EQ(registry.ReadDword(u"Text", 7), 7u);
    EXPECT_EQ(registry.ReadDword(u"Short", 7), 7u);
    EXPECT_EQ(Stored(u"Short").data, three);
    EXPECT_EQ(Stored(u"Text").type, REG_SZ);
}

TEST_F(Settings, WithoutAnOpenKeyEverythingIsADefaultAndNothingIsWritten) {
    ExpectDefaults();
    EXPECT_FALSE(registry.Open(kPath, false)) << "a user who never opened the settings";
    ExpectDefaults();
    ASSERT_TRUE(registry.Open(kPath, true));
    registry.Close();
    ExpectDefaults();
    EXPECT_FALSE(IsStored(u"UseLocalCRL"));
    ASSERT_TRUE(registry.Open(kPath, false));
    EXPECT_FALSE(registry.Open(u"software\\missing", false));
    ExpectDefaults();  // the key opened before is not held on to
}

TEST_F(Settings, AReadFailureGivesTheDefaultUnwritten) {
    ASSERT_TRUE(registry.Open(kPath, true));
    const std::string garbage = "no database" + std::string(5000, '.');
    const auto file = profile.Write("config/norvik/registry.db", garbage);
    EXPECT_EQ(registry.ReadDword(u"UseLocalCRL", 1), 1u);
    EXPECT_EQ(registry.ReadString(u"HashAlg", u"SHA256"), u"SHA256");
    EXPECT_EQ(tests::ReadFile(file), garbage);
}

}  // namespace

#include "src/settings/Settings.h"

#include <gtest/gtest.h>

#include "tests/support/Profile.h"
#include "units/Registry.h"

namespace settings {
namespace {

using platform::ERROR_INVALID_PARAMETER;
using platform::ERROR_SUCCESS;

class SettingsTable : public testing::Test {
  protected:
    static const Setting& Find(std::u16string_view topic, std::u16string_view name) {
        const Setting* const setting = FindSetting(topic, name);
        EXPECT_NE(setting, nullptr);
        return setting == nullptr ? AllSettings().front() : *setting;
    }
    tests::Profile profile;
};

TEST_F(SettingsTable, ValuesAreFoundByTopicAndNameWithoutCase) {
    EXPECT_EQ(Find(u"verification", u"hashalg").missing, u"SHA256");
    EXPECT_EQ(Find(u"TSA", u"NTPUse").rule, MissingRule::writtenBack);
    EXPECT_EQ(Find(u"", u"InstallDir").hive, platform::Hive::HKEY_LOCAL_MACHINE);
    EXPECT_EQ(FindSetting(u"Print", u"HashAlg"), nullptr);
    for (const Setting& setting : AllSettings())
        EXPECT_EQ(FindSetting(TopicOf(setting), setting.name), &setting);
}

TEST_F(SettingsTable, LookingWritesNothing) {
    for (const Setting& setting : AllSettings())
        EXPECT_EQ(StoredText(setting), std::nullopt);
    EXPECT_FALSE(std::filesystem::exists(profile.Folder() / "config/norvik"));
    ASSERT_EQ(Store(Find(u"Verification", u"HashAlg"), u"SHA1"), ERROR_SUCCESS);
    EXPECT_EQ(StoredText(Find(u"Verification", u"UseLocalCRL")), std::nullopt);
    CRegistry registry;
    ASSERT_TRUE(registry.Open(kVerificationKey, false));
    EXPECT_EQ(registry.ReadString(u"HashAlg"), u"SHA1");
    std::vector<std::u16string> names;
    platform::RegEnumValueW(registry.GetKey(), names);
    EXPECT_EQ(names, std::vector<std::u16string>{u"HashAlg"});
}

TEST_F(SettingsTable, NumbersAreStoredAsNumbersAndOtherTextIsRefused) {
    const Setting& setting = Find(u"TSA", u"NTPUse");
    for (const auto* text : {u"", u"x", u"1x", u" 1", u"-1", u"+1", u"4294967296"})
        EXPECT_EQ(Store(setting, text), ERROR_INVALID_PARAMETER);
    EXPECT_EQ(StoredText(setting), std::nullopt);
    EXPECT_EQ(Store(setting, u"4294967295"), ERROR_SUCCESS);
    EXPECT_EQ(StoredText(setting), u"4294967295");
    CRegistry registry;
    ASSERT_TRUE(registry.Open(kTsaKey, false));
    registry.WriteString(u"NTPUse", u"1");
    EXPECT_EQ(StoredText(setting), std::nullopt) << "a value of the wrong type is none";
}

}  // namespace
}  // namespace settings

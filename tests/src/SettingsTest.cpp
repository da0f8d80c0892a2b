#include "src/settings/TsaList.h"

#include <gmock/gmock.h>

#include "platform/Text.h"
#include "src/settings/Settings.h"
#include "tests/support/Profile.h"
#include "units/Registry.h"

namespace settings {
namespace {

using testing::ElementsAre;
using testing::Field;

class TsaList : public testing::Test {
  protected:
    static void Write(std::u16string_view json) {
        CRegistry registry;
        ASSERT_TRUE(registry.Open(kTsaKey, true));
        ASSERT_TRUE(registry.WriteString(u"JSON", json));
    }
    static std::vector<std::u16string> Titles(const std::vector<TsaRecord>& list) {
        std::vector<std::u16string> titles;
        for (const auto& record : list)
            titles.push_back(record.title);
        return titles;
    }
    tests::Profile profile;
};

TEST_F(TsaList, ReadsTheStoredRecordsInTheirOrder) {
    // "тайна" in UTF-16LE.
    Write(
        uR"([{"title":"Сървър 1","url":"http://tsa.example/ts","username":"иван","password":"QgQwBDkEPQQwBA=="},
               {"title":"second","url":"http://second.example","username":"","password":"","selected":true}])");
    const auto list = LoadTsaList(nullptr);
    EXPECT_THAT(Titles(list), ElementsAre(u"Сървър 1", u"second"));
    EXPECT_EQ(list.at(0).url, u"http://tsa.example/ts");
    EXPECT_EQ(list[0].username, u"иван");
    EXPECT_EQ(list[0].password, u"тайна");
    EXPECT_TRUE(!list[0].selected && list.at(1).selected);
}

TEST_F(TsaList, TheRecordsOfATextNeedATitleOrAnAddressAndTheFirstSelectedWins) {
    Write(uR"([{"title":"stored"}])");
    const auto list = LoadTsaList(
        uR"([{"username":"u"}, 7, "text", null, [], {"url":"http://only.example"},
        {"title":"only title","selected":"True"}, {}, {"title":"c","selected":true}])");
    ASSERT_THAT(Titles(list), ElementsAre(u"", u"only title", u"c"));
    EXPECT_EQ(list[0].url, u"http://only.example");
    EXPECT_THAT(list, ElementsAre(Field(&TsaRecord::selected, false), Field(&TsaRecord::selected, true),
                                  Field(&TsaRecord::selected, false)));
    EXPECT_THAT(LoadTsaList(u"[]"), ElementsAre());
}

TEST_F(TsaList, WhatIsMissingOrBrokenIsAnEmptyList) {
    EXPECT_THAT(LoadTsaList(nullptr), ElementsAre());
    EXPECT_FALSE(std::filesystem::exists(profile.Folder() / "config/norvik")) << "looking makes no key";
    for (const auto* text : {u"", u"no json", u"{\"title\":\"x\"}", u"[", u"[}", u"<a/>"}) {
        EXPECT_THAT(LoadTsaList(text), ElementsAre());
        Write(text);
        EXPECT_THAT(LoadTsaList(nullptr), ElementsAre());
    }
    EXPECT_THAT(Titles(LoadTsaList(u"[{\"title\":\"whole\"},{\"username\":")), ElementsAre(u"whole"));
    const auto list = LoadTsaList(uR"([{"title":"x","username":"u","password":"!!not base64!!"}])");
    EXPECT_THAT(Titles(list), ElementsAre(u"x"));
}

TEST_F(TsaList, IsGivenForAChangeOnlyWhenNothingWouldBeLost) {
    std::vector<TsaRecord> list;
    EXPECT_EQ(settings::LoadTsaListForChange(list), platform::ERROR_SUCCESS) << "none yet";
    for (const auto* text : {u"", u"[]", u" [ ] ", u"[{\"title\":\"a\"},{\"url\":\"b\"}]\n"}) {
        Write(text);
        EXPECT_EQ(settings::LoadTsaListForChange(list), platform::ERROR_SUCCESS);
    }
    EXPECT_EQ(list.size(), 2U);
    for (const auto* text :
         {u"no json", u"[", u"{\"title\":\"x\"}", u"[{\"title\":\"a\"},{\"url\":", u"[{\"title\":\"a\"},7]"}) {
        Write(text);
        EXPECT_EQ(settings::LoadTsaListForChange(list), platform::ERROR_INVALID_DATA) << platform::ToUtf8(text);
        EXPECT_TRUE(list.empty());
    }
    profile.Write("config/norvik/registry.db",
                  "garbage in place of a database, longer than its header would be: " + std::string(200, 'x'));
    EXPECT_EQ(settings::LoadTsaListForChange(list), platform::ERROR_REGISTRY_CORRUPT);
}

TEST_F(TsaList, IsStoredCompactWithTheMembersInTheirOrderAndComesBackAsItWas) {
    EXPECT_EQ(FormatTsaList({{u"http://a.example", u"А", u"u", u"ab", false}, {u"x", u"y", u"", u"", true}}),
              uR"([{"title":"А","url":"http://a.example","username":"u","password":"YQBiAA=="},)"
              uR"({"title":"y","url":"x","username":"","password":"","selected":true}])");
    EXPECT_EQ(FormatTsaList({}), u"[]");
    const std::vector<TsaRecord> list = {
        {u"http://a.example/?x=1&y=\"2\"", u"А \\ \"Б\"\n🔑", u"потребител", u"пàrola 🔑 \"", false},
        {u"https://b.example", u"b", u"", u"", true}};
    ASSERT_EQ(StoreTsaList(list), platform::ERROR_SUCCESS);
    const auto back = LoadTsaList(nullptr);
    EXPECT_EQ(back.at(0).password, list[0].password);
    EXPECT_EQ(FormatTsaList(back), FormatTsaList(list));
}

TEST(SettingsTable, LookingWritesNothing) {
    const tests::Profile profile;
    const auto& hash = *FindSetting(u"Verification", u"HashAlg");
    for (const Setting& setting : AllSettings())
        EXPECT_EQ(StoredText(setting), std::nullopt);
    EXPECT_FALSE(std::filesystem::exists(profile.Folder() / "config/norvik"));
    ASSERT_EQ(Store(hash, u"SHA1"), platform::ERROR_SUCCESS);
    EXPECT_EQ(StoredText(*FindSetting(u"Verification", u"UseLocalCRL")), std::nullopt);
    CRegistry registry;
    ASSERT_TRUE(registry.Open(kVerificationKey, false));
    EXPECT_EQ(registry.ReadString(u"HashAlg"), u"SHA1");
    std::vector<std::u16string> names;
    platform::RegEnumValueW(registry.GetKey(), names);
    EXPECT_EQ(names, std::vector<std::u16string>{u"HashAlg"});
    registry.WriteDword(u"HashAlg", 1);
    EXPECT_EQ(StoredText(hash), std::nullopt) << "a value of the wrong type is none";
}

}  // namespace
}  // namespace settings

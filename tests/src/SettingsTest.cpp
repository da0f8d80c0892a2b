#include <gmock/gmock.h>

#include "platform/Text.h"
#include "src/settings/Settings.h"
#include "src/settings/TsaList.h"
#include "tests/support/Profile.h"
#include "units/Registry.h"

namespace settings {
namespace {

class Settings : public testing::Test {
  protected:
    static void Write(std::u16string_view json) {
        CRegistry registry;
        ASSERT_TRUE(registry.Open(kTsaKey, true));
        ASSERT_TRUE(registry.WriteString(u"JSON", json));
    }
    // The list, or that of the text, with "*" behind the selected.
    static std::string Titles(const char16_t* text = nullptr) {
        std::string titles;
        for (const auto& record : LoadTsaList(text))
            titles += '<' + platform::ToUtf8(record.title) + (record.selected ? "*>" : ">");
        return titles;
    }
    tests::Profile profile_;
};

TEST_F(Settings, TheRecordsOfAnAuthorityKeepTheirOrderAndNeedATitleOrAnAddressAndTheFirstSelectedWins) {
    // "тайна" in UTF-16LE.
    Write(
        uR"([{"title":"Сървър 1","url":"http://tsa.example/ts","username":"иван","password":"QgQwBDkEPQQwBA=="},
               {"title":"second","url":"http://second.example","username":"","password":"","selected":true}])");
    EXPECT_EQ(Titles(), "<Сървър 1><second*>");
    const auto first = LoadTsaList(nullptr).at(0);
    EXPECT_EQ(first.url, u"http://tsa.example/ts");
    EXPECT_EQ(first.username, u"иван");
    EXPECT_EQ(first.password, u"тайна");
    const auto* const text =
        uR"([{"username":"u"}, 7, "text", null, [], {"url":"http://only.example"},
        {"title":"only title","selected":"True"}, {}, {"title":"c","selected":true}])";
    EXPECT_EQ(Titles(text), "<><only title*><c>");
    EXPECT_EQ(LoadTsaList(text)[0].url, u"http://only.example");
    EXPECT_EQ(Titles(u"[]"), "") << "and not what is stored";
}

TEST_F(Settings, WhatIsMissingOrBrokenIsAnEmptyListThatIsGivenForAChangeOnlyWhenNothingWouldBeLost) {
    std::vector<TsaRecord> list;
    EXPECT_EQ(Titles(), "");
    EXPECT_FALSE(std::filesystem::exists(profile_.Folder() / "config/norvik")) << "looking makes no key";
    EXPECT_EQ(LoadTsaListForChange(list), platform::ERROR_SUCCESS) << "none yet";
    struct Case {
        const char16_t* text;
        const char* titles;
        bool whole;
    };
    for (const auto& [text, titles, whole] :
         {Case{u"", "", true}, Case{u"[]", "", true}, Case{u" [ ] ", "", true},
          Case{u"[{\"title\":\"a\"},{\"url\":\"b\"}]\n", "<a><>", true}, Case{u"no json", "", false},
          Case{u"{\"title\":\"x\"}", "", false}, Case{u"[", "", false}, Case{u"[}", "", false},
          Case{u"<a/>", "", false}, Case{u"[{\"title\":\"whole\"},{\"username\":", "<whole>", false},
          Case{u"[{\"title\":\"a\"},7]", "<a>", false},
          Case{u"[{\"title\":\"x\",\"username\":\"u\",\"password\":\"!!not base64!!\"}]", "<x>", true}}) {
        SCOPED_TRACE(platform::ToUtf8(text));
        Write(text);
        EXPECT_EQ(Titles(), titles);
        EXPECT_EQ(Titles(text), titles);
        EXPECT_EQ(LoadTsaListForChange(list), whole ? platform::ERROR_SUCCESS : platform::ERROR_INVALID_DATA);
        EXPECT_EQ(list.size(), whole ? LoadTsaList(nullptr).size() : 0U);
    }
    profile_.Write("config/norvik/registry.db",
                   "garbage in place of a database, longer than its header would be: " + std::string(200, 'x'));
    EXPECT_EQ(LoadTsaListForChange(list), platform::ERROR_REGISTRY_CORRUPT);
}

TEST_F(Settings, TheListIsStoredCompactWithTheMembersInTheirOrderAndComesBackAsItWas) {
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

TEST_F(Settings, LookingWritesNothing) {
    const auto& hash = *FindSetting(u"Verification", u"HashAlg");
    for (const Setting& setting : AllSettings())
        EXPECT_EQ(StoredText(setting), std::nullopt);
    EXPECT_FALSE(std::filesystem::exists(profile_.Folder() / "config/norvik"));
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

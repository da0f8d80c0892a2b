#include "tests/tools/CommandTest.h"

namespace {

using namespace tests;
using testing::AllOf;
using testing::HasSubstr;
using testing::Not;

class SettingsCommandTest : public CommandTest {};

TEST_F(SettingsCommandTest, AreKeptAsTheyWereSetAndOnlyWhenTheyFit) {
    Walk({{{"settings", "get", "Verification", "HashAlg"}, 0, "SHA256\n"},
          {{"settings", "set", "verification", "hashalg", "SHA1"}, 0, ""},
          {{"settings", "get", "Verification", "HashAlg"}, 0, "SHA1\n"},
          {{"settings", "set", "TSA", "NTPUse", "1"}, 0, ""},
          {{"settings", "get", "TSA", "NTPUse"}, 0, "1\n"},
          {{"settings", "set", "TSA", "NTPUse", "едно"}, 2, "число: едно"},
          {{"settings", "set", "TSA", "NTPUse", "4294967296"}, 2, "число"},
          {{"settings", "set", "TSA", "NTPUse", "-1"}, 2, ""},
          {{"settings", "get", "TSA", "NTPUse"}, 0, "1\n"},
          {{"settings", "set", "Print", "Header", "Заглавие „със“ знаци %d"}, 0, ""},
          {{"settings", "get", "Print", "Header"}, 0, "Заглавие „със“ знаци %d\n"},
          {{"settings", "get", "TSA", "Nothing"}, 2, "Няма настройка TSA Nothing"},
          {{"settings", "set", "Elsewhere", "HashAlg", "SHA1"}, 2, "Няма настройка"}});
    const auto list = Run({"settings", "list"});
    EXPECT_THAT(list.output, AllOf(HasSubstr("Verification HashAlg                текст    SHA1\n"),
                                   HasSubstr("хеш алгоритъм на подписите")));
}

TEST_F(SettingsCommandTest, HoldAListOfAuthoritiesWithAtMostOneDefault) {
    Walk({{{"tsa", "list"}, 0, "Няма записани TSA."},
          {{"tsa", "add", "Първа", "http://one.example/", "--default"}, 0, ""},
          {{"tsa", "add", "Втора", "https://two.example/", "--user", "иван", "--password-stdin"}, 0, "", "тайна\n"},
          {{"tsa", "add", "Втора", "https://three.example/"}, 2, "Вече има TSA"},
          {{"tsa", "add", "Трета", "ftp://three.example/"}, 2, "http://"},
          {{"tsa", "add", "Трета", "http://three.example/", "--password-stdin"}, 2, "--user", "тайна\n"},
          {{"tsa", "add", "Трета", "http://three.example/", "--user", "иван"}, 2, "--password-stdin"},
          {{"tsa", "list"}, 0, "* Първа                    http://one.example/\n"},
          {{"tsa", "list"}, 0, "  Втора                    https://two.example/  (потребител иван)\n"},
          {{"tsa", "add", "Трета", "http://three.example/", "--user", "и", "--password-stdin", "--default"},
           0,
           "паролата ще минава по мрежата открито",
           "п\n"},
          {{"tsa", "list"}, 0, "  Първа "},
          {{"tsa", "list"}, 0, "* Трета "},
          {{"tsa", "remove", "Няма"}, 1, "Няма TSA с име"},
          {{"tsa", "remove", "Първа"}, 0, ""}});
    EXPECT_THAT(Run({"tsa", "list"}).output,
                AllOf(Not(HasSubstr("Първа")), HasSubstr("* Трета"), Not(HasSubstr("тайна"))));
}

TEST_F(SettingsCommandTest, LeaveADamagedListOfAuthoritiesAsItIs) {
    const std::string damaged = R"([{"title":"whole","url":"http://one.example/"},{"title":)";
    Walk({{{"settings", "set", "TSA", "JSON", damaged}, 0, ""},
          {{"tsa", "add", "Втора", "http://two.example/"}, 1, "е повреден и не е променен"},
          {{"tsa", "remove", "whole"}, 1, "е повреден и не е променен"},
          {{"tsa", "list"}, 0, "е повреден и важи само това"},
          {{"sign", "няма.txt"}, 1, "е повреден и важи само това"},
          {{"settings", "get", "TSA", "JSON"}, 0, damaged.c_str()}});
}

}  // namespace

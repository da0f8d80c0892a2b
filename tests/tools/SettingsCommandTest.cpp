#include "tests/tools/CommandTest.h"

namespace {

using namespace tests;

class SettingsCommandTest : public CommandTest {};

TEST_F(SettingsCommandTest, AreKeptAsTheyWereSetAndOnlyWhenTheyFit) {
    Walk({{"get Verification HashAlg", 0, {"=SHA256\n"}},
          {"set verification hashalg SHA1", 0},
          {"get Verification HashAlg", 0, {"=SHA1\n"}},
          {"set TSA NTPUse 1", 0},
          {"set TSA NTPUse едно", 2, {"число: едно"}},
          {"set TSA NTPUse 4294967296", 2, {"число"}},
          {"set TSA NTPUse -1", 2},
          {"get TSA NTPUse", 0, {"=1\n"}},
          {"set Print Header 'Заглавие „със“ знаци %d'", 0},
          {"get Print Header", 0, {"=Заглавие „със“ знаци %d\n"}},
          {"get TSA Nothing", 2, {"Няма настройка TSA Nothing"}},
          {"set Elsewhere HashAlg SHA1", 2, {"Няма настройка"}},
          {"list", 0, {"Verification HashAlg                текст    SHA1\n", "хеш алгоритъм на подписите"}}},
         "norvik settings ");
}

TEST_F(SettingsCommandTest, HoldAListOfAuthoritiesWithAtMostOneDefault) {
    Walk({{"list", 0, {"Няма записани TSA."}},
          {"add Първа http://one.example/ --default", 0},
          {"add Втора https://two.example/ --user иван --password-stdin", 0, {}, "тайна\n"},
          {"add Втора https://three.example/", 2, {"Вече има TSA"}},
          {"add Трета ftp://three.example/", 2, {"http://"}},
          {"add Трета http://three.example/ --password-stdin", 2, {"--user"}, "тайна\n"},
          {"add Трета http://three.example/ --user иван", 2, {"--password-stdin"}},
          {"list",
           0,
           {"* Първа                    http://one.example/\n",
            "  Втора                    https://two.example/  (потребител иван)\n", "!тайна"}},
          {"add Трета http://three.example/ --user и --password-stdin --default",
           0,
           {"паролата ще минава по мрежата открито"},
           "п\n"},
          {"list", 0, {"  Първа ", "* Трета "}},
          {"remove Няма", 1, {"Няма TSA с име"}},
          {"remove Първа", 0},
          {"list", 0, {"!Първа", "* Трета"}}},
         "norvik tsa ");
}

TEST_F(SettingsCommandTest, LoseNoAuthorityOfSeveralThatAreAddedAtOnce) {
    Walk({{"for i in 1 2 3 4 5 6 7 8; do norvik tsa add $i http://$i.example/ & done; wait; norvik tsa list | wc -l",
           0,
           {"=8\n"}}},
         "");
}

TEST_F(SettingsCommandTest, LeaveADamagedListOfAuthoritiesAsItIs) {
    const std::string damaged = R"([{"title":"whole","url":"http://one.example/"},{"title":)";
    Walk({{"settings set TSA JSON '" + damaged + "'", 0},
          {"tsa add Втора http://two.example/", 1, {"е повреден и не е променен"}},
          {"tsa remove whole", 1, {"е повреден и не е променен"}},
          {"tsa list", 0, {"е повреден и важи само това"}},
          {"sign няма.txt", 1, {"е повреден и важи само това"}},
          {"settings get TSA JSON", 0, {damaged}}});
}

}  // namespace

#include "platform/Registry.h"

#include <gmock/gmock.h>
#include <signal.h>
#include <sqlite3.h>

#include <array>
#include <barrier>
#include <thread>

#include "platform/HostLog.h"
#include "platform/Text.h"
#include "tests/platform/Child.h"
#include "tests/support/Profile.h"

namespace {

using namespace platform;
using testing::ElementsAre;
using tests::ExitStatus;
using tests::Fork;
using tests::ReadFile;
namespace fs = std::filesystem;

constexpr auto kUser = Hive::HKEY_CURRENT_USER, kMachine = Hive::HKEY_LOCAL_MACHINE;

class Registry : public testing::Test {
  protected:
    static ErrorCode OpenCode(std::u16string_view path, Hive hive = kUser) {
        RegistryKey key;
        return RegOpenKeyExW(hive, path, key);
    }
    static ErrorCode CreateCode(std::u16string_view path, Hive hive = kUser) {
        RegistryKey key;
        return RegCreateKeyExW(hive, path, key);
    }
    static RegistryKey Create(std::u16string_view path, Hive hive = kUser) {
        RegistryKey key;
        EXPECT_EQ(RegCreateKeyExW(hive, path, key), ERROR_SUCCESS);
        return key;
    }
    static void Set(const RegistryKey& key, std::u16string_view name, std::string_view text) {
        EXPECT_EQ(RegSetValueExW(key, name, REG_BINARY, AsBytes(text)), ERROR_SUCCESS);
    }
    static std::string Get(const RegistryKey& key, std::u16string_view name) {
        RegistryValue value;
        const ErrorCode code = RegQueryValueExW(key, name, value);
        return code == ERROR_SUCCESS ? std::string(AsText(value.data)) : "code " + std::to_string(code);
    }
    using List = ErrorCode (*)(const RegistryKey&, std::vector<std::u16string>&);
    static std::vector<std::u16string> Listed(List list, const RegistryKey& key) {
        std::vector<std::u16string> names;
        EXPECT_EQ(list(key, names), ERROR_SUCCESS);
        return names;
    }
    static std::vector<std::u16string> Keys(const RegistryKey& key) { return Listed(RegEnumKeyExW, key); }
    static std::vector<std::u16string> Values(const RegistryKey& key) { return Listed(RegEnumValueW, key); }

    tests::Profile profile;
    const fs::path file = profile.Folder() / "config/norvik/registry.db",
                   machineFile = profile.Machine() / "registry.db";
};

TEST_F(Registry, NamesCompareWithoutCaseAndKeepTheirFirstSpelling) {
    Set(Create(u"Software\\Topic"), u"Value", "first");
    const auto key = Create(u"SOFTWARE\\tOPIC");
    EXPECT_EQ(key.Path(), u"Software\\Topic");
    EXPECT_EQ(Get(key, u"VALUE"), "first");
    Set(key, u"vaLUE", "second");
    EXPECT_EQ(Get(key, u"Value"), "second");
    EXPECT_EQ(Create(u"software\\Other\\").Path(), u"Software\\Other");
    Set(key, u"", std::string(1, '\0'));
    Set(key, u"Име", "");
    EXPECT_THAT(Values(key), ElementsAre(u"Value", u"", u"Име"));
    RegistryKey other;
    ASSERT_EQ(RegOpenKeyExW(kUser, u"Software\\Topic", other), ERROR_SUCCESS);
    EXPECT_EQ(Get(other, u""), std::string(1, '\0'));
    EXPECT_EQ(Get(other, u"Име"), "");
    EXPECT_EQ(Get(other, u"Missing"), "code 2");
}

TEST_F(Registry, KeysAreListedInTheOrderOfTheirMakingWithoutTheirOwnChildren) {
    for (const auto* path : {u"LDAP", u"LDAP\\zeta\\deep", u"LDAP\\Алфа", u"LDAP\\50%_x", u"LDAP2\\not below"})
        Create(path);
    EXPECT_THAT(Keys(Create(u"LDAP")), ElementsAre(u"zeta", u"Алфа", u"50%_x"));
    EXPECT_THAT(Keys(Create(u"")), ElementsAre(u"LDAP", u"LDAP2"));
}

TEST_F(Registry, OnlyAKeyWithoutKeysBelowIsDeletedAndItsHoldersNotice) {
    const auto hosts = Create(u"LDAP"), host = Create(u"LDAP\\host\\part");
    Set(host, u"a", "1");
    EXPECT_EQ(RegDeleteKeyW(hosts, u"HOST"), ERROR_ACCESS_DENIED);
    EXPECT_EQ(RegDeleteKeyW(hosts, u"missing"), ERROR_FILE_NOT_FOUND);
    EXPECT_EQ(RegDeleteKeyW(hosts, u"host\\PART"), ERROR_SUCCESS);
    EXPECT_EQ(RegSetValueExW(host, u"a", REG_BINARY, {}), ERROR_KEY_DELETED);
    EXPECT_EQ(Get(host, u"a"), "code " + std::to_string(ERROR_KEY_DELETED));
    EXPECT_EQ(Get(Create(u"LDAP\\host\\part"), u"a"), "code 2") << "values of the deleted key came back";
    EXPECT_EQ(RegDeleteValueW(hosts, u"none"), ERROR_FILE_NOT_FOUND);
}

TEST_F(Registry, MalformedPathsAndClosedKeysAreRefused) {
    for (const auto& path :
         {std::u16string(u"\\a"), std::u16string(u"a\\\\b"), std::u16string(u"a\\b\\\\"), std::u16string(256, u'x')})
        EXPECT_EQ(CreateCode(path), ERROR_INVALID_PARAMETER);
    EXPECT_EQ(CreateCode(std::u16string(255, u'x')), ERROR_SUCCESS);
    RegistryValue value;
    EXPECT_EQ(RegQueryValueExW(RegistryKey(), u"a", value), ERROR_INVALID_HANDLE);
    EXPECT_EQ(RegSetValueExW(RegistryKey(), u"a", REG_SZ, {}), ERROR_INVALID_HANDLE);
}

TEST_F(Registry, AHiveIsMadeByTheFirstCreationAloneAndForItsOwnerAlone) {
    EXPECT_EQ(OpenCode(u"software"), ERROR_FILE_NOT_FOUND);
    EXPECT_FALSE(fs::exists(file.parent_path()));
    const mode_t before = umask(0);
    Create(u"software");
    umask(before);
    EXPECT_EQ(OpenCode(u"software"), ERROR_SUCCESS);
    EXPECT_EQ(OpenCode(u"hardware"), ERROR_FILE_NOT_FOUND);
    EXPECT_EQ(tests::ModeOf(file), 0600U);
    EXPECT_EQ(tests::ModeOf(file.parent_path()), 0700U);
    EXPECT_FALSE(fs::exists(machineFile));
    Create(u"Software", kMachine);
    EXPECT_TRUE(fs::exists(machineFile));
}

TEST_F(Registry, WithoutAHomeFolderNothingOpensAndNothingIsMade) {
    profile.Set("XDG_CONFIG_HOME", std::nullopt);
    profile.Set("HOME", std::nullopt);
    EXPECT_EQ(OpenCode(u"software"), ERROR_PATH_NOT_FOUND);
    EXPECT_EQ(CreateCode(u"software"), ERROR_PATH_NOT_FOUND);
    profile.Set("XDG_CONFIG_HOME", profile.Write("a file", "x").string());
    EXPECT_EQ(CreateCode(u"software"), ERROR_PATH_NOT_FOUND);
}

TEST_F(Registry, ADamagedHiveGivesACodeAndIsLeftAsItIs) {
    Set(Create(u"software"), u"big", std::string(60'000, 'x'));
    const std::string good = ReadFile(file);
    std::string holed = good;
    holed.replace(4096, 2 * 4096, 2 * 4096, '\x5A');
    static int remarks;
    remarks = 0;
    SetHostLog([](std::string_view text) { remarks += text.find("registry.db") != std::string_view::npos; });
    for (const std::string& content : {"somebody's text of more than a hundred bytes" + std::string(100, '.'),
                                       good.substr(0, 5000), good.substr(0, 60), holed}) {
        profile.Write(file, content);
        EXPECT_EQ(OpenCode(u"software"), ERROR_REGISTRY_CORRUPT);
        EXPECT_EQ(CreateCode(u"software\\new"), ERROR_REGISTRY_CORRUPT);
        EXPECT_EQ(ReadFile(file), content);
    }
    SetHostLog(nullptr);
    EXPECT_GE(remarks, 4) << "nobody is told which file is damaged";
    profile.Write(file, "");
    EXPECT_EQ(OpenCode(u"software"), ERROR_FILE_NOT_FOUND);
    EXPECT_EQ(CreateCode(u"software"), ERROR_SUCCESS) << "a file whose making was interrupted";
}

TEST_F(Registry, SomebodyElsesOrANewerDatabaseIsNotTouched) {
    const auto runSql = [&](const char* sql) {
        sqlite3* db = nullptr;
        ASSERT_EQ(sqlite3_open(file.c_str(), &db), SQLITE_OK);
        EXPECT_EQ(sqlite3_exec(db, sql, nullptr, nullptr, nullptr), SQLITE_OK) << sqlite3_errmsg(db);
        sqlite3_close(db);
    };
    fs::create_directories(file.parent_path());
    runSql("CREATE TABLE theirs (x)");
    const std::string theirs = ReadFile(file);
    EXPECT_EQ(CreateCode(u"software"), ERROR_REGISTRY_CORRUPT);
    EXPECT_EQ(ReadFile(file), theirs);
    fs::remove(file);
    Create(u"software");
    runSql("PRAGMA user_version = 2");
    EXPECT_EQ(CreateCode(u"software"), ERROR_NOT_SUPPORTED);
    fs::remove(file);
    fs::create_directory(file);
    EXPECT_EQ(CreateCode(u"software"), ERROR_REGISTRY_CORRUPT);
}

TEST_F(Registry, AHiveThatMayNotBeWrittenIsRefusedOnBothWays) {
    Create(u"software", kMachine);
    Create(u"software");
    chmod(machineFile.c_str(), 0444);
    chmod(file.c_str(), 0666);
    for (const auto& folder : {profile.Folder(), profile.Folder() / "config", file.parent_path(), profile.Machine()})
        chmod(folder.c_str(), 0755);
    EXPECT_EQ(tests::InChild([&] {
                  if (!tests::BecomeNobody()) return 99;
                  if (geteuid() != 12345) chmod(file.parent_path().c_str(), 0555);
                  if (OpenCode(u"software", kMachine) != ERROR_ACCESS_DENIED) return 1;
                  if (CreateCode(u"software", kMachine) != ERROR_ACCESS_DENIED) return 2;
                  // A writable file in a folder where the journal cannot be made.
                  return OpenCode(u"software") != ERROR_ACCESS_DENIED ? 3 : 0;
              }),
              0);
    chmod(file.parent_path().c_str(), 0755);
}

TEST_F(Registry, ProcessesThatWriteAtOnceLoseNothing) {
    constexpr int kProcesses = 4, kValues = 25;
    std::vector<pid_t> children;
    for (int process = 0; process < kProcesses; ++process) {
        children.push_back(Fork([process] {  // the making of the file is raced for, too
            for (int i = 0; i < kValues; ++i) {
                const auto name = ToWide(std::to_string(process) + "-" + std::to_string(i));
                if (CreateCode(u"software\\" + name) != ERROR_SUCCESS) return 1;
                RegistryKey key;
                if (RegCreateKeyExW(kUser, u"software\\shared", key) != ERROR_SUCCESS) return 2;
                if (RegSetValueExW(key, name, REG_BINARY, AsBytes("x")) != ERROR_SUCCESS) return 3;
            }
            return 0;
        }));
    }
    for (const pid_t child : children)
        EXPECT_EQ(ExitStatus(child), 0);
    EXPECT_EQ(Values(Create(u"software\\shared")).size(), std::size_t{kProcesses * kValues});
    EXPECT_EQ(Keys(Create(u"software")).size(), std::size_t{kProcesses * kValues + 1});
}

TEST_F(Registry, OneThatOpensTheHiveWhileOthersMakeItSeesItWholeOrNotAtAll) {
    for (int round = 0; round < 60; ++round) {
        fs::remove(file);
        std::array<ErrorCode, 4> codes{};
        std::barrier start(static_cast<std::ptrdiff_t>(codes.size()));
        {
            std::vector<std::jthread> threads;
            for (ErrorCode& code : codes)
                threads.emplace_back([&] {
                    start.arrive_and_wait();
                    code = CreateCode(u"software");
                });
        }
        EXPECT_THAT(codes, testing::Each(ERROR_SUCCESS)) << "round " << round;
    }
}

TEST_F(Registry, AKillInTheMiddleOfAWriteLeavesTheOldOrTheNewValue) {
    const std::string a(300'000, 'a'), b(300'000, 'b');
    Set(Create(u"software"), u"value", a);
    for (int round = 0; round < 12; ++round) {
        const pid_t child = Fork([&] {
            for (const auto key = Create(u"software");;) {
                Set(key, u"value", b);
                Set(key, u"value", a);
            }
            return 0;
        });
        usleep(static_cast<useconds_t>(20'000 + 3'700 * round));
        kill(child, SIGKILL);
        waitpid(child, nullptr, 0);
        const std::string value = Get(Create(u"software"), u"value");
        EXPECT_TRUE(value == a || value == b) << value.substr(0, 20) << value.size();
    }
}

}  // namespace

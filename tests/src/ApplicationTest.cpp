#include <dlfcn.h>
#include <gmock/gmock.h>
#include <spdlog/spdlog.h>
#include <sys/wait.h>
#include <unistd.h>

#include <fstream>
#include <set>
#include <thread>

#include "platform/Registry.h"
#include "src/Norvik.h"
#include "tests/support/Profile.h"
#include "tests/support/ScriptedInterface.h"
#include "units/Registry.h"

namespace {

namespace fs = std::filesystem;

class Application : public testing::Test {
  protected:
    ~Application() override { CNorvikApp::Stop(); }
    std::shared_ptr<CNorvikApp> Start() {
        return CNorvikApp::Start(std::make_unique<tests::ScriptedInterface>(script_));
    }
    // Processes that do this at the same moment, each with its number; all must answer 0.
    template <typename Work>
    static void InProcesses(int count, const Work& work) {
        std::vector<pid_t> children;
        for (int i = 0; i < count; ++i) {
            children.push_back(fork());
            if (children.back() == 0) _exit(work(i));
        }
        for (const auto child : children) {
            int status = -1;
            waitpid(child, &status, 0);
            EXPECT_EQ(status, 0);
        }
    }
    tests::Profile profile_;
    tests::Script script_;
    const fs::path folder_ = profile_.Folder() / "tmp/Norvik", log_ = folder_ / "Norvik.log";
};

TEST_F(Application, HasASessionFolderOfItsOwnUntilItStops) {
    const auto app = Start();
    const auto folder = app->SessionFolder();
    ASSERT_TRUE(fs::is_directory(folder));
    EXPECT_EQ(folder.parent_path(), folder_);
    EXPECT_THAT(folder.filename().string(),
                testing::MatchesRegex("[0-9A-F]{8}-[0-9A-F]{4}-[0-9A-F]{4}-[0-9A-F]{4}-[0-9A-F]{12}"));
    EXPECT_EQ(fs::status(folder).permissions(), fs::perms::owner_all);
    EXPECT_EQ(app->CrlCacheFolder(), folder / "CRLCache");
    InProcesses(1, [&](int) {
        CNorvikApp::Stop();
        return fs::exists(folder) ? 0 : 1;
    });
    EXPECT_TRUE(fs::exists(folder)) << "left to its owner when a forked child ends";

    profile_.Write(folder / "CRLCache/left", "over");
    CNorvikApp::Stop();
    EXPECT_FALSE(fs::exists(folder)) << "also while an operation still holds the object";
    EXPECT_EQ(CNorvikApp::Current(), nullptr);
    EXPECT_TRUE(fs::exists(folder_));
}

TEST_F(Application, AppendsABackslashToTheInstallFolderWhereTheMachinesSettingsMayBeWritten) {
    EXPECT_EQ(Start()->InstallDir(), u"\\");
    {
        CRegistry machine(platform::Hive::HKEY_LOCAL_MACHINE);
        ASSERT_TRUE(machine.Open(u"Software\\Tessaly\\Tessaly Norvik", true));
        ASSERT_TRUE(machine.WriteString(u"InstallDir", u"/opt/norvik"));
    }
    EXPECT_EQ(Start()->InstallDir(), u"/opt/norvik\\");
    profile_.Set("NORVIK_MACHINE_DIR", "/proc/norvik");
    EXPECT_EQ(Start()->InstallDir(), u"");
}

TEST_F(Application, SaysWhyItHasNoTempFolderAndWorksOnWithoutALog) {
    const auto blocked = profile_.Write("blocked/Norvik", "a file where the folder should be").parent_path();
    fs::permissions(blocked, fs::perms::owner_all);
    profile_.Set("TMPDIR", blocked.string());
    const auto app = Start();
    EXPECT_THAT(script_.Texts(), testing::ElementsAre(testing::StartsWith("Norvik:138\r\n\r\n")));
    EXPECT_EQ(script_.shown.at(0).title, u"Norvik");
    EXPECT_EQ(app->SessionFolder(), fs::path());
    EXPECT_EQ(app->Logger(), nullptr);
    LogInfo(u"goes nowhere");
}

TEST_F(Application, WorksWhereTheLogCannotBeWritten) {
    fs::create_directories(log_);  // a folder has the log's name
    const auto app = Start();
    LogInfo(u"lost");
    LogError(u"lost");
    EXPECT_TRUE(fs::is_directory(app->SessionFolder()));
    EXPECT_TRUE(script_.shown.empty());
}

TEST_F(Application, GivesTheLogLibraryBackAsItWas) {
    const auto before = spdlog::default_logger();
    Start();
    EXPECT_EQ(spdlog::default_logger()->name(), "Norvik_logger");
    LogInfo(u"На български");
    CNorvikApp::Stop();
    EXPECT_EQ(spdlog::default_logger(), before);
    EXPECT_EQ(spdlog::get("Norvik_logger"), nullptr);
    EXPECT_THAT(tests::ReadFile(log_), testing::HasSubstr("] [Norvik_logger] [info] На български\n"));
}

// Every line of several processes and threads must be there once, whole, although the file is rotated under them many
// times.
TEST_F(Application, SharesItsLogWithOtherProcessesThroughRotations) {
    static constexpr int processes = 4, threads = 2, lines = 700;  // about 5 MiB: four rotations
    InProcesses(processes, [&](int p) {
        Start();
        std::vector<std::jthread> writers;
        for (int t = 0; t < threads; ++t)
            writers.emplace_back([p, t] {
                for (int i = 0; i < lines; ++i)
                    LogInfo(platform::ToWide('<' + std::to_string((p * threads + t) * lines + i) +
                                             std::string(900, 'x') + '>'));
            });
        writers.clear();
        CNorvikApp::Stop();
        return 0;
    });
    std::multiset<std::string> found;
    int files = 0;
    for (const auto& entry : fs::directory_iterator(folder_)) {
        if (entry.path().extension() != ".log") continue;
        ++files;
        EXPECT_LE(entry.file_size(), 0x100000u) << entry.path();
        std::ifstream file(entry.path());
        for (std::string line; std::getline(file, line);) {
            const auto open = line.find('<');
            ASSERT_NE(open, std::string::npos) << line;
            ASSERT_EQ(line.back(), '>') << "a line is torn: " << line;
            found.insert(line.substr(open + 1, line.find('x', open) - open - 1));
        }
    }
    EXPECT_GE(files, 5);
    EXPECT_EQ(found.size(), static_cast<std::size_t>(processes * threads * lines));
    EXPECT_EQ(std::set<std::string>(found.begin(), found.end()).size(), found.size()) << "a line stands twice";
}

// The one that makes the folder second must not take that for a failure.
TEST_F(Application, HasItsLogAlsoWhereOthersStartAtTheSameMoment) {
    for (int round = 0; round < 20; ++round) {
        fs::remove_all(folder_);
        InProcesses(4, [&](int) {
            const auto app = Start();
            const bool complete = app->Logger() && !app->SessionFolder().empty();
            CNorvikApp::Stop();
            return complete ? 0 : 1;
        });
    }
}

TEST_F(Application, KeepsFiveOldLogsAtMost) {
    Start();
    for (int i = 0; i < 100; ++i)
        LogInfo(std::u16string(100'000, u'x'));
    std::set<std::string> names;
    for (const auto& entry : fs::directory_iterator(folder_))
        if (entry.is_regular_file()) names.insert(entry.path().stem().string());
    EXPECT_THAT(names, testing::ElementsAre("Norvik", "Norvik.1", "Norvik.2", "Norvik.3", "Norvik.4", "Norvik.5"));
}

// The library as an application sees it: loaded, called from several threads, and unloaded, again and again.
TEST_F(Application, ComesWithTheLibraryAndGoesWithIt) {
    for (int round = 0; round < 3; ++round) {
        void* library = dlopen(NORVIK_BINARY_DIR "/lib/libNorvik.so", RTLD_NOW | RTLD_LOCAL);
        ASSERT_NE(library, nullptr) << dlerror();
        const auto init = reinterpret_cast<void (*)(void*)>(dlsym(library, "NorvikInit"));
        ASSERT_NE(init, nullptr);
        std::vector<std::jthread> callers;
        for (int i = 0; i < 4; ++i)
            callers.emplace_back([&] { init(&library); });
        callers.clear();
        EXPECT_EQ(CNorvikApp::Current()->parentWindow, &library);
        const auto folder = CNorvikApp::Current()->SessionFolder();
        EXPECT_TRUE(fs::is_directory(folder));
        dlclose(library);
        EXPECT_FALSE(fs::exists(folder)) << "round " << round;
    }
}

TEST_F(Application, CleansUpWhenTheProcessEndsWithThreadsInsideIt) {
    InProcesses(1, [](int) {
        if (dlopen(NORVIK_BINARY_DIR "/lib/libNorvik.so", RTLD_NOW) == nullptr) return 3;
        for (int i = 0; i < 4; ++i) {
            std::thread([] {
                for (;;)
                    LogInfo(u"still here");
            }).detach();
        }
        usleep(20'000);
        std::exit(0);
    });
    for (const auto& entry : fs::directory_iterator(folder_))
        EXPECT_FALSE(entry.is_directory()) << "left behind: " << entry.path();
}

}  // namespace

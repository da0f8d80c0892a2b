// What servers answered is kept on disk, and believed no more than what comes from the network.

#include <signal.h>
#include <sys/wait.h>

#include <thread>

#include "platform/Files.h"
#include "platform/posix/AnswerCache.h"
#include "tests/platform/OnlineFixture.h"

namespace {

using namespace platform;
using namespace tests;
using namespace std::chrono_literals;
using posix::AnswerCache;
using testing::ElementsAre;
using testing::IsEmpty;
namespace fs = std::filesystem;

constexpr auto kOcsp = AnswerCache::Kind::ocsp;

class RevocationCache : public OnlineFixture {
  protected:
    [[nodiscard]] std::vector<fs::path> Files() const {
        std::error_code none;
        return std::vector<fs::path>(fs::directory_iterator(folder_, none), fs::directory_iterator());
    }
    void Age(std::chrono::hours age) const {
        fs::last_write_time(Files().front(), fs::file_time_type::clock::now() - age);
    }
    // What stands in the place of the kept answer is neither believed nor left there.
    void ExpectDropped(OnlineWorld& online, const Bytes& content) const {
        online.world.network.allowed = true;
        EXPECT_EQ(online.FreshVerdict(profile_), 0U);
        ASSERT_EQ(Files().size(), 1U);
        WriteWholeFile(Files().front(), content);
        online.world.network.allowed = false;
        EXPECT_EQ(online.Verdict(), kSilent);
        EXPECT_THAT(Files(), IsEmpty());
    }
    const fs::path folder_ = profile_.Folder() / "cache/norvik/revocation";
    OnlineWorld lists_{{"/crl"}}, responder_{{}, {"/ocsp"}};
};

TEST_F(RevocationCache, ACrlIsFetchedOnceAndServesOfflineToo) {
    lists_.server.Serve("/crl", MakeCrl(lists_.ca, lists_.Listing()));
    for (const bool allowed : {true, true, false}) {
        lists_.world.network.allowed = allowed;
        EXPECT_EQ(lists_.Verdict(), CRYPT_E_REVOKED);
    }
    EXPECT_THAT(lists_.server.Asked(), ElementsAre("/crl"));
    ASSERT_EQ(Files().size(), 1U);
    EXPECT_EQ(fs::status(Files().front()).permissions(), fs::perms(0600));
    EXPECT_EQ(fs::status(folder_).permissions(), fs::perms(0700));
    EXPECT_EQ(fs::status(folder_.parent_path()).permissions(), fs::perms(0700));
}

TEST_F(RevocationCache, WhatHasRunOutIsAskedForAgain) {
    lists_.server.Serve("/crl", MakeCrl(lists_.ca, {.nextUpdate = std::time(nullptr) + 1}));
    EXPECT_EQ(lists_.Verdict(), 0U);
    lists_.server.Serve("/crl", MakeCrl(lists_.ca, lists_.Listing()));
    std::this_thread::sleep_for(2s);
    EXPECT_EQ(lists_.Verdict(), CRYPT_E_REVOKED);
}

TEST_F(RevocationCache, WhatNamesNoEndOrDoesNotTellIsNotKept) {
    lists_.server.Serve("/crl", MakeCrl(lists_.ca, {.nextUpdate = std::nullopt}));
    EXPECT_EQ(lists_.Verdict(), 0U);
    lists_.server.Serve("/crl", MakeCrl(lists_.root));
    EXPECT_EQ(lists_.Verdict(), kSilent);
    ServeOcsp(responder_, responder_.ca, {.status = OcspSpec::Status::unknown});
    EXPECT_EQ(responder_.Verdict(), kNobody);
    ServeOcsp(responder_, responder_.ca, {.nextUpdate = std::nullopt});
    EXPECT_EQ(responder_.Verdict(), 0U);
    EXPECT_THAT(Files(), IsEmpty());
}

TEST_F(RevocationCache, ABrokenFileIsDroppedAndNeverBelieved) {
    const Bytes crl = MakeCrl(lists_.ca), garbage = CopyOf(AsBytes("garbage"));
    lists_.server.Serve("/crl", crl);
    for (const Bytes& content : {Bytes(), garbage, Bytes(crl.begin(), crl.end() - 1), MakeCrl(lists_.root),
                                 MakeCrl(lists_.ca, {.breakSignature = true}), MakeCrl(lists_.ca, Outdated())})
        ExpectDropped(lists_, content);
    OnlineWorld other({}, {"/ocsp"});
    for (OnlineWorld* each : {&responder_, &other})
        ServeOcsp(*each, each->ca);
    EXPECT_EQ(other.Verdict(), 0U);
    for (const Bytes& content : {Bytes(), garbage, *ReadWholeFile(Files().front())})
        ExpectDropped(responder_, content);
}

TEST_F(RevocationCache, AFileOfLastWeekServesOnlyIfNobodyAnswers) {
    lists_.server.Serve("/crl", MakeCrl(lists_.ca));
    EXPECT_EQ(lists_.Verdict(), 0U);
    Age(8 * 24h);
    lists_.world.network.allowed = false;
    EXPECT_EQ(lists_.Verdict(), 0U);
    lists_.world.network.allowed = true;
    lists_.server.Serve("/crl", MakeCrl(lists_.ca, lists_.Listing()));
    EXPECT_EQ(lists_.Verdict(), CRYPT_E_REVOKED);
}

TEST_F(RevocationCache, AFolderThatOthersMayWriteToIsNotUsed) {
    lists_.server.Serve("/crl", MakeCrl(lists_.ca));
    fs::create_directories(folder_);
    fs::permissions(folder_, fs::perms(0777));
    for (const std::size_t asked : {1U, 2U}) {
        EXPECT_EQ(lists_.Verdict(), 0U);
        EXPECT_EQ(lists_.server.Asked().size(), asked);
    }
    EXPECT_THAT(Files(), IsEmpty());
}

TEST_F(RevocationCache, TheOldestFilesMakeRoom) {
    const AnswerCache cache;
    cache.Keep(kOcsp, "first", AsBytes("1"));
    Age(24h);
    for (int i = 0; i < 2048; ++i)
        profile_.Write(folder_ / ("ocsp-" + std::to_string(i)), "x");
    cache.Keep(kOcsp, "last", AsBytes("2"));
    EXPECT_LE(Files().size(), 2048U);
    EXPECT_FALSE(cache.Find(kOcsp, "first"));
    EXPECT_TRUE(cache.Find(kOcsp, "last"));
    for (const char* name : {"crl-a", "crl-b"})
        fs::resize_file(profile_.Write(folder_ / name, "x"), std::uintmax_t{100} << 20);
    cache.Keep(kOcsp, "last", AsBytes("3"));
    std::uintmax_t total = 0;
    for (const fs::path& file : Files())
        total += fs::file_size(file);
    EXPECT_LE(total, std::uintmax_t{128} << 20);
}

// Writers that are killed at any moment, and several at once: whoever reads finds one of the contents, whole.
TEST_F(RevocationCache, IsWholeWhateverBecomesOfItsWriters) {
    const Bytes contents[] = {Bytes(70'000, 'a'), Bytes(200'000, 'b')};
    const AnswerCache cache;
    std::size_t found = 0;
    for (int round = 0; round < 20; ++round) {
        pid_t writers[3];
        for (pid_t& writer : writers) {
            writer = fork();
            if (writer != 0) continue;
            for (unsigned i = 0;; ++i)
                cache.Keep(kOcsp, "key", contents[i % 2]);
        }
        for (const pid_t writer : writers) {
            std::this_thread::sleep_for(std::chrono::milliseconds(5 + round));
            if (const auto kept = cache.Find(kOcsp, "key")) {
                ++found;
                EXPECT_TRUE(kept->bytes == contents[0] || kept->bytes == contents[1]);
            }
            ASSERT_EQ(kill(writer, SIGKILL), 0);
            ASSERT_EQ(waitpid(writer, nullptr, 0), writer);
        }
    }
    EXPECT_GT(found, 10U);
}

}  // namespace

// What servers answered is kept on disk, and believed no more than what comes from the network.

#include <gmock/gmock.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <thread>

#include "platform/Files.h"
#include "platform/posix/AnswerCache.h"
#include "tests/support/OcspResponder.h"
#include "tests/support/OnlineWorld.h"

namespace {

using namespace platform;
using namespace tests;
using namespace std::chrono_literals;
using posix::AnswerCache;
using testing::ElementsAre;
using testing::IsEmpty;
namespace fs = std::filesystem;

const std::int64_t kNow = std::time(nullptr);
constexpr ErrorCode kSilent = CRYPT_E_REVOCATION_OFFLINE;

class RevocationCache : public testing::Test {
  protected:
    [[nodiscard]] fs::path Folder() const { return profile_.Folder() / "cache/norvik/revocation"; }
    [[nodiscard]] std::vector<fs::path> Files() const {
        std::vector<fs::path> files;
        if (!fs::exists(Folder())) return files;
        for (const auto& entry : fs::directory_iterator(Folder()))
            files.push_back(entry.path());
        return files;
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
    Profile profile_;
};

struct CrlWorld : OnlineWorld {
    CrlWorld() : OnlineWorld({"/crl"}) {}
};
struct ResponderWorld : OnlineWorld {
    ResponderWorld() : OnlineWorld({}, {"/ocsp"}) {}
    void Answer(const OcspSpec& spec) {
        server.Serve("/ocsp", [spec, issuer = ca](const HttpRequest& request) {
            return HttpAnswer{.body = std::string(AsText(AnswerOcsp(AsBytes(request.body), issuer, issuer, spec)))};
        });
    }
};

unsigned ModeOf(const fs::path& path) {
    struct stat status {};
    return stat(path.c_str(), &status) == 0 ? status.st_mode & 07777 : 0;
}

TEST_F(RevocationCache, ACrlIsFetchedOnceAndServesOfflineToo) {
    CrlWorld online;
    online.server.Serve("/crl", MakeCrl(online.ca, online.Listing()));
    EXPECT_EQ(online.Verdict(), CRYPT_E_REVOKED);
    EXPECT_EQ(online.Verdict(), CRYPT_E_REVOKED);
    online.world.network.allowed = false;
    EXPECT_EQ(online.Verdict(), CRYPT_E_REVOKED);
    EXPECT_THAT(online.server.Asked(), ElementsAre("/crl"));
    ASSERT_EQ(Files().size(), 1U);
    EXPECT_EQ(ModeOf(Files().front()), 0600U);
    EXPECT_EQ(ModeOf(Folder()), 0700U);
    EXPECT_EQ(ModeOf(Folder().parent_path()), 0700U);
}

TEST_F(RevocationCache, WhatHasRunOutIsAskedForAgain) {
    CrlWorld online;
    CrlSpec brief;
    brief.nextUpdate = std::time(nullptr) + 1;
    online.server.Serve("/crl", MakeCrl(online.ca, brief));
    EXPECT_EQ(online.Verdict(), 0U);
    online.server.Serve("/crl", MakeCrl(online.ca, online.Listing()));
    std::this_thread::sleep_for(2s);
    EXPECT_EQ(online.Verdict(), CRYPT_E_REVOKED);
}

TEST_F(RevocationCache, WhatNamesNoEndOrDoesNotTellIsNotKept) {
    CrlWorld online;
    CrlSpec endless;
    endless.nextUpdate.reset();
    online.server.Serve("/crl", MakeCrl(online.ca, endless));
    EXPECT_EQ(online.Verdict(), 0U);
    online.server.Serve("/crl", MakeCrl(online.root));
    EXPECT_EQ(online.Verdict(), kSilent);
    ResponderWorld responder;
    responder.Answer({.status = OcspSpec::Status::unknown});
    EXPECT_EQ(responder.Verdict(), CRYPT_E_NO_REVOCATION_CHECK);
    responder.Answer({.nextUpdate = std::nullopt});
    EXPECT_EQ(responder.Verdict(), 0U);
    EXPECT_THAT(Files(), IsEmpty());
}

TEST_F(RevocationCache, ABrokenFileIsDroppedAndNeverBelieved) {
    CrlWorld lists;
    ResponderWorld responder, other;
    const Bytes crl = MakeCrl(lists.ca), garbage = CopyOf(AsBytes("garbage"));
    CrlSpec outdated;
    outdated.thisUpdate = kNow - 9 * kDay;
    outdated.nextUpdate = kNow - kDay;
    lists.server.Serve("/crl", crl);
    for (const Bytes& content : {Bytes(), garbage, Bytes(crl.begin(), crl.end() - 1), MakeCrl(lists.root),
                                 MakeCrl(lists.ca, {.breakSignature = true}), MakeCrl(lists.ca, outdated)})
        ExpectDropped(lists, content);
    responder.Answer({});
    other.Answer({});
    EXPECT_EQ(other.Verdict(), 0U);
    for (const Bytes& content : {Bytes(), garbage, *ReadWholeFile(Files().front())})
        ExpectDropped(responder, content);
}

TEST_F(RevocationCache, AFileOfLastWeekServesOnlyIfNobodyAnswers) {
    CrlWorld online;
    online.server.Serve("/crl", MakeCrl(online.ca));
    EXPECT_EQ(online.Verdict(), 0U);
    const auto lastWeek = fs::file_time_type::clock::now() - std::chrono::hours(8 * 24);
    fs::last_write_time(Files().front(), lastWeek);
    online.world.network.allowed = false;
    EXPECT_EQ(online.Verdict(), 0U);
    online.world.network.allowed = true;
    online.server.Serve("/crl", MakeCrl(online.ca, online.Listing()));
    EXPECT_EQ(online.Verdict(), CRYPT_E_REVOKED);
}

TEST_F(RevocationCache, AFolderThatOthersMayWriteToIsNotUsed) {
    CrlWorld online;
    online.server.Serve("/crl", MakeCrl(online.ca));
    fs::create_directories(Folder());
    fs::permissions(Folder(), fs::perms(0777));
    EXPECT_EQ(online.Verdict(), 0U);
    EXPECT_EQ(online.Verdict(), 0U);
    EXPECT_EQ(online.server.Asked().size(), 2U);
    EXPECT_THAT(Files(), IsEmpty());
}

TEST_F(RevocationCache, TheOldestFilesMakeRoom) {
    const AnswerCache cache;
    cache.Keep(AnswerCache::Kind::ocsp, "first", AsBytes("1"));
    const auto yesterday = fs::file_time_type::clock::now() - std::chrono::hours(24);
    fs::last_write_time(Files().front(), yesterday);
    for (int i = 0; i < 2048; ++i)
        profile_.Write(Folder() / ("ocsp-" + std::to_string(i)), "x");
    cache.Keep(AnswerCache::Kind::ocsp, "last", AsBytes("2"));
    EXPECT_LE(Files().size(), 2048U);
    EXPECT_FALSE(cache.Find(AnswerCache::Kind::ocsp, "first"));
    EXPECT_TRUE(cache.Find(AnswerCache::Kind::ocsp, "last"));
    for (const char* name : {"crl-a", "crl-b"})
        fs::resize_file(profile_.Write(Folder() / name, "x"), std::uintmax_t{100} << 20);
    cache.Keep(AnswerCache::Kind::ocsp, "last", AsBytes("3"));
    std::uintmax_t total = 0;
    for (const fs::path& file : Files())
        total += fs::file_size(file);
    EXPECT_LE(total, std::uintmax_t{128} << 20);
}

// Writers that are killed at any moment, and several at once: whoever reads finds one of the contents, whole.
TEST_F(RevocationCache, IsWholeWhateverBecomesOfItsWriters) {
    const Bytes contents[] = {Bytes(70'000, 'a'), Bytes(200'000, 'b')};
    const AnswerCache cache;
    const auto write = [&] {
        for (unsigned i = 0;; ++i)
            cache.Keep(AnswerCache::Kind::ocsp, "key", contents[i % 2]);
    };
    std::size_t found = 0;
    for (int round = 0; round < 20; ++round) {
        std::vector<pid_t> writers;
        for (int i = 0; i < 3; ++i) {
            const pid_t writer = fork();
            if (writer == 0) write();
            writers.push_back(writer);
        }
        for (const pid_t writer : writers) {
            std::this_thread::sleep_for(std::chrono::milliseconds(5 + round));
            const auto kept = cache.Find(AnswerCache::Kind::ocsp, "key");
            if (kept) {
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

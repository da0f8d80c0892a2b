#include "platform/Files.h"

#include <gmock/gmock.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <csignal>
#include <fstream>

#include "tests/support/LastError.h"
#include "tests/support/Profile.h"

namespace platform {
namespace {

namespace fs = std::filesystem;

class Files : public testing::Test {
  protected:
    Files() { fs::create_directory(folder); }

    [[nodiscard]] std::vector<std::string> Names() const {
        std::vector<std::string> names;
        for (const auto& entry : fs::directory_iterator(folder))
            names.push_back(entry.path().filename().string());
        return names;
    }
    static mode_t ModeOf(const fs::path& path) {
        struct stat status {};
        return lstat(path.c_str(), &status) == 0 ? status.st_mode & 07777 : 0;
    }

    tests::Profile profile;
    const fs::path folder = profile.Folder() / "out";
};

ErrorCode ErrorOfOpening(const fs::path& path) {
    SetLastError(0);
    return InputFile::Open(path) ? 0 : GetLastError();
}
ErrorCode ErrorOfWriting(const fs::path& path) {
    SetLastError(0);
    return WriteWholeFile(path, AsBytes("text")) ? 0 : GetLastError();
}

TEST_F(Files, ReadsAnyPieceAndTellsTheEnd) {
    const auto path = profile.Write("in", "0123456789");
    const auto file = InputFile::Open(path);
    ASSERT_TRUE(file);
    EXPECT_EQ(file->Size(), 10u);
    Bytes piece(4);
    EXPECT_EQ(file->ReadAt(8, piece), 2u);
    EXPECT_EQ(AsText(ByteView(piece).first(2)), "89");
    EXPECT_EQ(file->ReadAt(10, piece), 0u);
    EXPECT_EQ(file->ReadAt(~std::uint64_t{0}, piece), 0u);
    EXPECT_TRUE(file->ReadExactly(6, piece));
    EXPECT_EQ(AsText(piece), "6789");
    fs::resize_file(path, 8);
    EXPECT_FAILS(file->ReadExactly(6, piece), ERROR_HANDLE_EOF);
}

TEST_F(Files, OnlyRegularFilesAreOpened) {
    const auto fifo = folder / "fifo";
    ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
    EXPECT_EQ(ErrorOfOpening(fifo), ERROR_INVALID_DATA);  // and does not wait for a writer
    EXPECT_EQ(ErrorOfOpening("/dev/null"), ERROR_INVALID_DATA);
    EXPECT_EQ(ErrorOfOpening(folder), ERROR_DIRECTORY);
    EXPECT_EQ(ErrorOfOpening(folder / "missing"), ERROR_FILE_NOT_FOUND);
    EXPECT_EQ(ErrorOfOpening(profile.Write("in", "x") / "below"), ERROR_PATH_NOT_FOUND);
    EXPECT_EQ(ErrorOfOpening(folder / std::string(300, 'x')), ERROR_FILENAME_EXCED_RANGE);
    fs::create_symlink("loop", folder / "loop");
    EXPECT_EQ(ErrorOfOpening(folder / "loop"), ERROR_PATH_NOT_FOUND);
}

TEST_F(Files, AWholeFileAboveTheLimitIsRefused) {
    const auto path = profile.Write("in", "0123456789");
    EXPECT_EQ(ReadWholeFile(path, 10), CopyOf(AsBytes("0123456789")));
    EXPECT_EQ(ReadWholeFile(path, 9), std::nullopt);
    EXPECT_EQ(GetLastError(), ERROR_FILE_INVALID);
}

TEST_F(Files, AFileThatNoMemoryHoldsIsRefused) {
#ifdef __SANITIZE_ADDRESS__
    GTEST_SKIP() << "the sanitizer ends the program where an allocation fails";
#endif
    const auto path = profile.Write("in", "sparse");
    fs::resize_file(path, std::uintmax_t{1} << 42);
    EXPECT_EQ(ReadWholeFile(path, ~std::uint64_t{0}), std::nullopt);
    EXPECT_EQ(GetLastError(), ERROR_NOT_ENOUGH_MEMORY);
}

TEST_F(Files, TheResultStandsUnderItsNameOnlyWhenCommitted) {
    const auto target = folder / std::string(255, 'n');  // as long as a name can be: the hidden one must not be longer
    profile.Write("out/" + target.filename().string(), "old content");
    {
        auto file = OutputFile::Create(target);
        ASSERT_TRUE(file && file->Write(AsBytes("????new")) && file->WriteAt(0, AsBytes("all ")));
        EXPECT_EQ(tests::ReadFile(target), "old content");
        OutputFile moved = std::move(*file);
        ASSERT_TRUE(moved.Write(AsBytes(" text")));
        EXPECT_TRUE(moved.Commit());
        EXPECT_FAILS(moved.Commit(), ERROR_INVALID_HANDLE);
    }
    EXPECT_EQ(tests::ReadFile(target), "all new text");
    { ASSERT_TRUE(OutputFile::Create(folder / "never")->Write(AsBytes("half"))); }
    EXPECT_THAT(Names(), testing::ElementsAre(target.filename().string()));
}

TEST_F(Files, WhatComesToTheTargetOrLeavesItMeanwhileDoesNotMatter) {
    const std::array<ByteView, 3> parts = {AsBytes("one "), {}, AsBytes("two")};
    auto coming = OutputFile::Create(folder / "comes");
    profile.Write("out/comes", "somebody else's");
    profile.Write("out/leaves", "old");
    auto leaving = OutputFile::Create(folder / "leaves");
    fs::remove(folder / "leaves");
    ASSERT_TRUE(coming && leaving);
    EXPECT_TRUE(coming->Write(parts) && coming->Write(parts) && coming->Commit());
    EXPECT_TRUE(leaving->Write(parts) && leaving->Commit());
    EXPECT_EQ(tests::ReadFile(folder / "comes"), "one twoone two");
    EXPECT_EQ(tests::ReadFile(folder / "leaves"), "one two");
    EXPECT_THAT(Names(), testing::UnorderedElementsAre("comes", "leaves"));
}

TEST_F(Files, TheFinishedFileHasTheMaskedModeAndKeepsNothingOfTheOldOne) {
    const mode_t before = umask(027);
    EXPECT_TRUE(WriteWholeFile(folder / "usual", AsBytes("x")));
    const auto old = profile.Write("out/old", "x");
    chmod(old.c_str(), 0777);
    fs::create_hard_link(old, folder / "other name");
    EXPECT_TRUE(WriteWholeFile(old, AsBytes("new"), 0600));
    umask(before);
    EXPECT_EQ(ModeOf(folder / "usual"), 0640u);
    EXPECT_EQ(ModeOf(old), 0600u);
    EXPECT_EQ(tests::ReadFile(folder / "other name"), "x");
}

TEST_F(Files, ALinkAtTheTargetIsReplacedAndItsFileIsLeftAlone) {
    const auto precious = profile.Write("precious", "kept");
    fs::create_symlink(precious, folder / "link");
    fs::create_symlink("nowhere", folder / "dangling");
    EXPECT_EQ(ErrorOfWriting(folder / "link"), 0u);
    EXPECT_EQ(ErrorOfWriting(folder / "dangling"), 0u);
    EXPECT_EQ(tests::ReadFile(precious), "kept");
    EXPECT_TRUE(fs::is_regular_file(fs::symlink_status(folder / "link")));
    EXPECT_EQ(tests::ReadFile(folder / "dangling"), "text");
}

TEST_F(Files, WhatIsNoFileIsNeverReplaced) {
    fs::create_directory(folder / "folder");
    fs::create_symlink("/dev/null", folder / "device");
    const auto fifo = folder / "fifo";
    ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
    EXPECT_EQ(ErrorOfWriting(folder / "folder"), ERROR_DIRECTORY);
    EXPECT_EQ(ErrorOfWriting(folder / "folder/"), ERROR_DIRECTORY);
    EXPECT_EQ(ErrorOfWriting(folder / ".."), ERROR_DIRECTORY);
    EXPECT_EQ(ErrorOfWriting(""), ERROR_DIRECTORY);
    EXPECT_EQ(ErrorOfWriting(folder / "device"), ERROR_INVALID_DATA);
    EXPECT_EQ(ErrorOfWriting(fifo), ERROR_INVALID_DATA);
    EXPECT_EQ(ErrorOfWriting(folder / "no" / "such"), ERROR_PATH_NOT_FOUND);
    EXPECT_TRUE(fs::is_fifo(fifo));
}

// Runs the check in a process of its own, which may give up rights and resources; its exit status is the answer.
int InChild(const std::function<int()>& check) {
    const pid_t child = fork();
    if (child == 0) _exit(check());
    int status = 0;
    waitpid(child, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

TEST_F(Files, AFolderOrFileWithoutWriteRightsIsToldAndLeftAsItIs) {
    const auto locked = profile.Write("out/locked", "kept");
    chmod(locked.c_str(), 0444);
    const auto readOnly = profile.Folder() / "read-only";
    fs::create_directory(readOnly);
    chmod(readOnly.c_str(), 0555);
    chmod(profile.Folder().c_str(), 0755);
    chmod(folder.c_str(), 0777);
    EXPECT_EQ(InChild([&] {
                  if (geteuid() == 0 && (setgid(12345) != 0 || setuid(12345) != 0)) return 99;
                  if (ErrorOfWriting(readOnly / "new") != ERROR_ACCESS_DENIED) return 1;
                  if (ErrorOfWriting(locked) != ERROR_ACCESS_DENIED) return 2;
                  return 0;
              }),
              0);
    EXPECT_TRUE(fs::is_empty(readOnly));
    EXPECT_EQ(tests::ReadFile(locked), "kept");
    EXPECT_THAT(Names(), testing::ElementsAre("locked"));
}

// Mounts a small empty disk at the folder, which only this process sees.
bool MountSmallDisk(const fs::path& folder) {
    const auto user = "0 " + std::to_string(geteuid()) + " 1", group = "0 " + std::to_string(getegid()) + " 1";
    if (unshare(CLONE_NEWUSER | CLONE_NEWNS) != 0) return false;
    // A user or group that the namespace does not know may not create files.
    std::ofstream("/proc/self/setgroups") << "deny";
    std::ofstream("/proc/self/uid_map") << user;
    std::ofstream("/proc/self/gid_map") << group;
    return mount("none", folder.c_str(), "tmpfs", 0, "size=64k") == 0;
}

TEST_F(Files, WhereAFileCannotBeNamelessItHasAHiddenNameUntilItIsDone) {
    const int status = InChild([&] {
        if (!MountSmallDisk("/proc")) return 77;  // the way to name a nameless file is gone
        for (const char* text : {"new", "replaced"}) {
            auto file = OutputFile::Create(folder / "file");
            if (!file || !file->Write(AsBytes(text))) return 1;
            const auto names = Names();
            if (std::ranges::count_if(names, [](const auto& name) { return name.starts_with(".norvik-"); }) != 1)
                return 2;
            if (!file->Commit() || tests::ReadFile(folder / "file") != text) return 3;
        }
        if (!OutputFile::Create(folder / "never")->Write(AsBytes("half"))) return 4;
        return Names() == std::vector<std::string>{"file"} ? 0 : 5;
    });
    if (status == 77) GTEST_SKIP() << "no user namespaces here";
    EXPECT_EQ(status, 0);
}

TEST_F(Files, AFullDiskIsToldAndLeavesTheOldFile) {
    const int status = InChild([&] {
        if (!MountSmallDisk(folder)) return 77;
        if (!WriteWholeFile(folder / "file", AsBytes("old"))) return 1;
        const Bytes big(100'000);
        if (WriteWholeFile(folder / "file", big)) return 2;
        if (GetLastError() != ERROR_DISK_FULL) return 3;
        if (tests::ReadFile(folder / "file") != "old") return 4;
        if (std::distance(fs::directory_iterator(folder), {}) != 1) return 5;
        return WriteWholeFile(folder / "file", ByteView(big).first(30'000)) ? 0 : 6;  // the space came back
    });
    if (status == 77) GTEST_SKIP() << "no user namespaces here";
    EXPECT_EQ(status, 0);
}

}  // namespace
}  // namespace platform

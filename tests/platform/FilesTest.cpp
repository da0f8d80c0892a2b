#include "platform/Files.h"

#include <gmock/gmock.h>
#include <sched.h>
#include <sys/mount.h>

#include <algorithm>
#include <array>
#include <fstream>

#include "tests/platform/Child.h"
#include "tests/support/LastError.h"
#include "tests/support/Profile.h"

namespace {

using namespace platform;
using testing::ElementsAre;
using tests::InChild;
using tests::ModeOf;
using tests::ReadFile;
namespace fs = std::filesystem;

class Files : public testing::Test {
  protected:
    Files() { fs::create_directory(folder); }
    [[nodiscard]] std::vector<std::string> Names() const {
        std::vector<std::string> names;
        for (const auto& entry : fs::directory_iterator(folder))
            names.push_back(entry.path().filename());
        return names;
    }
    [[nodiscard]] fs::path MakeFifo() const {
        EXPECT_EQ(mkfifo((folder / "fifo").c_str(), 0600), 0);
        return folder / "fifo";
    }

    tests::Profile profile;
    const fs::path folder = profile.Folder() / "out";
};

bool WriteText(const fs::path& path) {
    return WriteWholeFile(path, AsBytes("text"));
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
    fs::create_symlink("loop", folder / "loop");
    const std::pair<fs::path, ErrorCode> cases[] = {{MakeFifo(), ERROR_INVALID_DATA},  // and does not wait for a writer
                                                    {"/dev/null", ERROR_INVALID_DATA},
                                                    {folder, ERROR_DIRECTORY},
                                                    {folder / "missing", ERROR_FILE_NOT_FOUND},
                                                    {profile.Write("in", "x") / "below", ERROR_PATH_NOT_FOUND},
                                                    {folder / std::string(300, 'x'), ERROR_FILENAME_EXCED_RANGE},
                                                    {folder / "loop", ERROR_PATH_NOT_FOUND}};
    for (const auto& [path, code] : cases)
        EXPECT_FAILS(InputFile::Open(path), code) << path;
}

TEST_F(Files, AWholeFileAboveTheLimitOrTheMemoryIsRefused) {
    const auto path = profile.Write("in", "0123456789");
    EXPECT_EQ(ReadWholeFile(path, 10), CopyOf(AsBytes("0123456789")));
    EXPECT_FAILS(ReadWholeFile(path, 9), ERROR_FILE_INVALID);
#ifndef __SANITIZE_ADDRESS__  // which ends the program where an allocation fails
    fs::resize_file(path, std::uintmax_t{1} << 42);
    EXPECT_FAILS(ReadWholeFile(path, ~std::uint64_t{0}), ERROR_NOT_ENOUGH_MEMORY);
#endif
}

TEST_F(Files, TheResultStandsUnderItsNameOnlyWhenCommitted) {
    const auto target = folder / std::string(255, 'n');  // as long as a name can be: the hidden one must not be longer
    profile.Write(target, "old content");
    {
        auto file = OutputFile::Create(target);
        ASSERT_TRUE(file && file->Write(AsBytes("????new")) && file->WriteAt(0, AsBytes("all ")));
        EXPECT_EQ(ReadFile(target), "old content");
        OutputFile moved = std::move(*file);
        ASSERT_TRUE(moved.Write(AsBytes(" text")));
        EXPECT_TRUE(moved.Commit());
        EXPECT_FAILS(moved.Commit(), ERROR_INVALID_HANDLE);
    }
    EXPECT_EQ(ReadFile(target), "all new text");
    { ASSERT_TRUE(OutputFile::Create(folder / "never")->Write(AsBytes("half"))); }
    EXPECT_THAT(Names(), ElementsAre(target.filename().string()));
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
    EXPECT_EQ(ReadFile(folder / "comes"), "one twoone two");
    EXPECT_EQ(ReadFile(folder / "leaves"), "one two");
    EXPECT_THAT(Names(), testing::UnorderedElementsAre("comes", "leaves"));
}

TEST_F(Files, TheFinishedFileHasTheMaskedModeAndKeepsNothingOfTheOldOne) {
    const mode_t before = umask(027);
    EXPECT_TRUE(WriteText(folder / "usual"));
    const auto old = profile.Write("out/old", "x");
    chmod(old.c_str(), 0777);
    fs::create_hard_link(old, folder / "other name");
    EXPECT_TRUE(WriteWholeFile(old, AsBytes("new"), 0600));
    umask(before);
    EXPECT_EQ(ModeOf(folder / "usual"), 0640u);
    EXPECT_EQ(ModeOf(old), 0600u);
    EXPECT_EQ(ReadFile(folder / "other name"), "x");
}

TEST_F(Files, ALinkAtTheTargetIsReplacedAndItsFileIsLeftAlone) {
    const auto precious = profile.Write("precious", "kept");
    fs::create_symlink(precious, folder / "link");
    fs::create_symlink("nowhere", folder / "dangling");
    for (const char* name : {"link", "dangling"}) {
        EXPECT_TRUE(WriteText(folder / name));
        EXPECT_TRUE(fs::is_regular_file(fs::symlink_status(folder / name)));
    }
    EXPECT_EQ(ReadFile(precious), "kept");
    EXPECT_EQ(ReadFile(folder / "dangling"), "text");
}

TEST_F(Files, AProgramThatIsToldToEndLeavesNothingHalfWritten) {
    const auto write = [&](const char* name) { EXPECT_TRUE(WriteWholeFile(folder / name, AsBytes("text"))); };
    const auto program = [&] {
        RemoveLeftoversOnEndSignals();
        Leftover half(folder / "half"), moved(folder / "moved"), empty(folder / "empty");
        { const Leftover gone(folder / "finished"); }
        half = std::move(moved);
        for (const auto* name : {"half", "moved", "finished"})
            write(name);
        fs::create_directory(folder / "empty");
        raise(SIGTERM);
    };
    EXPECT_EXIT(program(), testing::KilledBySignal(SIGTERM), "");
    EXPECT_THAT(Names(), testing::UnorderedElementsAre("finished"));
}

TEST_F(Files, WhatIsNoFileIsNeverReplaced) {
    fs::create_directory(folder / "folder");
    fs::create_symlink("/dev/null", folder / "device");
    fs::create_symlink("/proc/self/fd/0", folder / "descriptor");  // whatever the process has open there
    const auto fifo = MakeFifo();
    for (const fs::path& path : {folder / "folder", folder / "folder/", folder / "..", fs::path()})
        EXPECT_FAILS(WriteText(path), ERROR_DIRECTORY) << path;
    EXPECT_FAILS(WriteText(folder / "device"), ERROR_INVALID_DATA);
    EXPECT_FAILS(WriteText(folder / "descriptor"), ERROR_INVALID_DATA);
    EXPECT_FAILS(WriteText(fifo), ERROR_INVALID_DATA);
    EXPECT_FAILS(WriteText(folder / "no" / "such"), ERROR_PATH_NOT_FOUND);
    EXPECT_TRUE(fs::is_fifo(fifo));
}

TEST_F(Files, AFolderOrFileWithoutWriteRightsIsToldAndLeftAsItIs) {
    const auto locked = profile.Write("out/locked", "kept"), readOnly = profile.Folder() / "read-only";
    fs::create_directory(readOnly);
    for (const auto& [path, mode] :
         {std::pair(locked, 0444), {readOnly, 0555}, {profile.Folder(), 0755}, {folder, 0777}})
        chmod(path.c_str(), static_cast<mode_t>(mode));
    EXPECT_EQ(InChild([&] {
                  if (!tests::BecomeNobody()) return 99;
                  if (WriteText(readOnly / "new") || GetLastError() != ERROR_ACCESS_DENIED) return 1;
                  return WriteText(locked) || GetLastError() != ERROR_ACCESS_DENIED ? 2 : 0;
              }),
              0);
    EXPECT_TRUE(fs::is_empty(readOnly));
    EXPECT_EQ(ReadFile(locked), "kept");
    EXPECT_THAT(Names(), ElementsAre("locked"));
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
            const auto hidden = [](const std::string& name) { return name.starts_with(".norvik-"); };
            if (std::ranges::count_if(Names(), hidden) != 1) return 2;
            if (!file->Commit() || ReadFile(folder / "file") != text) return 3;
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
        const Bytes big(100'000);
        if (!WriteText(folder / "file")) return 1;
        if (WriteWholeFile(folder / "file", big) || GetLastError() != ERROR_DISK_FULL) return 2;
        if (ReadFile(folder / "file") != "text" || Names().size() != 1) return 3;
        return WriteWholeFile(folder / "file", ByteView(big).first(30'000)) ? 0 : 4;  // the space came back
    });
    if (status == 77) GTEST_SKIP() << "no user namespaces here";
    EXPECT_EQ(status, 0);
}

}  // namespace

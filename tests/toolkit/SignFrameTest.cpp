// The lengths around a content of any size, and the pass that hashes and copies it.

#include <gtest/gtest.h>

#include <fstream>

#include "platform/formats/Der.h"
#include "tests/support/Profile.h"
#include "toolkit/cms/ContentPass.h"
#include "toolkit/cms/HashThread.h"
#include "toolkit/cms/SignedDataFrame.h"

namespace {

using platform::Bytes;
using toolkit::OperationLog;
using toolkit::cms::HashThread;
using toolkit::cms::PassContent;
using toolkit::cms::SignedDataFrame;

// Walks the headers as a reader does, who never needs the content: so 4 GiB cost nothing. Answers the offset of the
// content, having checked that every element ends where the one around it lets it.
std::uint64_t WalkHead(const Bytes& head, std::uint64_t contentSize, std::uint64_t tailSize) {
    const std::uint64_t total = head.size() + contentSize + tailSize, contentEnd = total - tailSize;
    // An element without an end of its own lies inside the head and is passed over.
    const std::pair<int, std::uint64_t> elements[] = {
        {0x30, total}, {0x06, 0},          {0xA0, total}, {0x30, total},      {0x02, 0},
        {0x31, 0},     {0x30, contentEnd}, {0x06, 0},     {0xA0, contentEnd}, {0x04, contentEnd}};
    std::uint64_t at = 0;
    for (const auto& [tag, end] : elements) {
        const auto header = platform::ParseElementHeader(platform::ByteView(head).subspan(at), platform::DerRules::der);
        if (!header || header->tag != tag) return 0;
        at += header->size + (end == 0 ? header->length : 0);
        EXPECT_TRUE(end == 0 || at + header->length == end) << "at " << at;
    }
    return at;
}

TEST(SignedDataFrame, NestedLengthsAgreeAroundEveryChangeOfALengthsSize) {
    for (const std::uint64_t edge : {0x80ull, 0x100ull, 0x10000ull, 0x1000000ull, 0x100000000ull, 0x10000000000ull}) {
        for (const std::uint64_t tail : {1000ull, 70000ull}) {
            for (std::uint64_t back = 0; back < 1200 && back < edge; ++back) {
                const std::uint64_t content = edge - 1 - back + 40;
                const Bytes head = SignedDataFrame(platform::HashAlgorithm::sha256, content).Head(tail);
                ASSERT_EQ(WalkHead(head, content, tail), head.size()) << content;
            }
        }
    }
}

class ContentPassTest : public testing::Test {
  protected:
    std::optional<Bytes> Pass(const std::filesystem::path& path, const toolkit::cms::ContentSink& sink,
                              const toolkit::ProgressHandler& progress = nullptr) {
        return PassContent(*platform::InputFile::Open(path), platform::HashAlgorithm::sha256, sink, progress, log_);
    }
    std::filesystem::path FileOf(std::size_t size) const {
        std::string content(size, '\0');
        std::uint32_t state = 1;
        for (char& c : content)
            c = static_cast<char>((state = state * 1664525 + 1013904223) >> 24);
        return profile_.Write("content", content);
    }
    tests::Profile profile_;
    OperationLog log_;
};

TEST_F(ContentPassTest, CopyAndDigestAreThoseOfTheFileAtAnySize) {
    constexpr std::size_t kPiece = HashThread::kPieceSize;
    for (const std::size_t size : {std::size_t{0}, std::size_t{1}, kPiece - 1, kPiece, kPiece + 1, 9 * kPiece + 17}) {
        const auto path = FileOf(size);
        std::string copy;
        std::uint64_t told = 0;
        const auto digest = Pass(
            path,
            [&](platform::ByteView piece) {
                copy.append(platform::AsText(piece));
                return true;
            },
            [&](std::uint64_t done, std::uint64_t total) {
                EXPECT_GE(done, told);
                EXPECT_EQ(total, size);
                told = done;
            });
        ASSERT_TRUE(digest) << size << log_.Text();
        EXPECT_TRUE(copy == tests::ReadFile(path)) << size;
        EXPECT_EQ(*digest, platform::Digest(platform::HashAlgorithm::sha256, platform::AsBytes(copy))) << size;
        EXPECT_EQ(told, size);
    }
}

TEST_F(ContentPassTest, FileThatChangesItsSizeMeanwhileIsRefused) {
    constexpr std::size_t kSize = 3 * HashThread::kPieceSize;
    const auto passWhile = [&](auto change) {
        const auto path = FileOf(kSize);
        bool changed = false;
        return Pass(path, [&](platform::ByteView) {
            if (!std::exchange(changed, true)) change(path);
            return true;
        });
    };
    EXPECT_FALSE(passWhile([](const auto& path) { std::filesystem::resize_file(path, kSize / 2); }));
    EXPECT_NE(log_.Text().find("shorter"), std::string::npos) << log_.Text();
    EXPECT_FALSE(passWhile([](const auto& path) { std::ofstream(path, std::ios::app) << "more"; }));
    EXPECT_NE(log_.Text().find("longer"), std::string::npos) << log_.Text();
}

TEST_F(ContentPassTest, RefusingSinkEndsThePassAtOnce) {
    int pieces = 0;
    EXPECT_FALSE(Pass(FileOf(6 * HashThread::kPieceSize), [&](platform::ByteView) { return ++pieces < 2; }));
    EXPECT_EQ(pieces, 2);
}

}  // namespace

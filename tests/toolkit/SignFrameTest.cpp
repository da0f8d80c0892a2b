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
    const std::uint64_t total = head.size() + contentSize + tailSize;
    std::uint64_t at = 0;
    const auto enter = [&](std::uint8_t tag) {
        const auto header = platform::ParseElementHeader(platform::ByteView(head).subspan(at), platform::DerRules::der);
        EXPECT_TRUE(header && header->tag == tag) << "at " << at;
        at += header ? header->size : 0;
        return at + (header ? header->length : 0);
    };
    EXPECT_EQ(enter(0x30), total);
    at = enter(0x06);
    EXPECT_EQ(enter(0xA0), total);
    EXPECT_EQ(enter(0x30), total);
    at = enter(0x02);
    at = enter(0x31);
    EXPECT_EQ(enter(0x30), total - tailSize);
    at = enter(0x06);
    EXPECT_EQ(enter(0xA0), total - tailSize);
    EXPECT_EQ(enter(0x04), total - tailSize);
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
        const auto input = platform::InputFile::Open(path);
        std::string copy;
        std::uint64_t told = 0;
        const auto digest = PassContent(
            *input, platform::HashAlgorithm::sha256,
            [&](platform::ByteView piece) {
                copy.append(platform::AsText(piece));
                return true;
            },
            [&](std::uint64_t done, std::uint64_t total) {
                EXPECT_GE(done, told);
                EXPECT_EQ(total, size);
                told = done;
            },
            log_);
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
        const auto input = platform::InputFile::Open(path);
        bool changed = false;
        return PassContent(
            *input, platform::HashAlgorithm::sha256,
            [&](platform::ByteView) {
                if (!std::exchange(changed, true)) change(path);
                return true;
            },
            nullptr, log_);
    };
    EXPECT_FALSE(passWhile([](const auto& path) { std::filesystem::resize_file(path, kSize / 2); }));
    EXPECT_NE(log_.Text().find("shorter"), std::string::npos) << log_.Text();
    EXPECT_FALSE(passWhile([](const auto& path) { std::ofstream(path, std::ios::app) << "more"; }));
    EXPECT_NE(log_.Text().find("longer"), std::string::npos) << log_.Text();
}

TEST_F(ContentPassTest, RefusingSinkEndsThePassAtOnce) {
    const auto input = platform::InputFile::Open(FileOf(6 * HashThread::kPieceSize));
    int pieces = 0;
    EXPECT_FALSE(PassContent(
        *input, platform::HashAlgorithm::sha256, [&](platform::ByteView) { return ++pieces < 2; }, nullptr, log_));
    EXPECT_EQ(pieces, 2);
}

}  // namespace

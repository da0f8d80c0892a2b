#include "platform/formats/Der.h"

#include <gtest/gtest.h>

#include <fstream>

#include "platform/Files.h"
#include "platform/formats/ByteSource.h"
#include "platform/formats/DerWriter.h"
#include "platform/formats/TstInfo.h"
#include "tests/support/Profile.h"

namespace {

using platform::Bytes;
using platform::ByteView;
using platform::DerReader;
using platform::DerRules;

Bytes Joined(std::initializer_list<Bytes> parts) {
    Bytes all;
    for (const Bytes& part : parts)
        all.insert(all.end(), part.begin(), part.end());
    return all;
}
Bytes Repeat(std::size_t count, const Bytes& unit) {
    Bytes all;
    for (std::size_t i = 0; i < count; ++i)
        all.insert(all.end(), unit.begin(), unit.end());
    return all;
}

TEST(DerReader, LengthsThatBreakTheRulesOrLeadOutsideAreRefused) {
    const struct {
        const char* name;
        Bytes bytes;
        bool der, ber;
    } cases[] = {
        {"empty", {}, false, false},
        {"tag alone", {4}, false, false},
        {"length beyond the end", {4, 2, 1}, false, false},
        {"exact", {4, 1, 7}, true, true},
        {"longer form than needed", {4, 0x81, 1, 7}, false, true},
        {"a byte less than the longer form is for", Joined({{4, 0x81, 0x7F}, Bytes(0x7F)}), false, true},
        {"just enough for it", Joined({{4, 0x81, 0x80}, Bytes(0x80)}), true, true},
        {"leading zero in the length", {4, 0x82, 0, 0x80}, false, false},
        {"length octets missing", {4, 0x82, 1}, false, false},
        {"2^63", {4, 0x88, 0x80, 0, 0, 0, 0, 0, 0, 0}, false, false},
        {"2^64-1", {4, 0x88, 255, 255, 255, 255, 255, 255, 255, 255}, false, false},
        {"nine length octets", {4, 0x89, 0, 0, 0, 0, 0, 0, 0, 0, 1, 7}, false, false},
        {"reserved length", {4, 0xFF, 1, 7}, false, false},
        {"indefinite", {0x30, 0x80, 0, 0}, false, true},
        {"indefinite and primitive", {4, 0x80, 0, 0}, false, false},
        {"indefinite without end", {0x30, 0x80, 4, 1, 7}, false, false},
        {"half an end", {0x30, 0x80, 0}, false, false},
        {"inner length beyond the outer end", {0x30, 0x80, 4, 9, 0, 0}, false, false},
        {"tag number in six octets", {0x1F, 0x81, 0x80, 0x80, 0x80, 1, 0}, true, true},
        {"tag number without end", Bytes(20, 0xFF), false, false},
    };
    for (const auto& [name, bytes, der, ber] : cases) {
        EXPECT_EQ(DerReader(bytes, DerRules::der).Next().has_value(), der) << name;
        EXPECT_EQ(DerReader(bytes, DerRules::ber).Next().has_value(), ber) << name;
    }
}

TEST(DerReader, IndefiniteLengthsEndAtTheirOwnEnd) {
    // SEQUENCE { SEQUENCE { OCTET STRING 00 00 } } with both lengths indefinite, and one more element behind.
    const Bytes bytes{0x30, 0x80, 0x30, 0x80, 4, 2, 0, 0, 0, 0, 0, 0, 5, 0};
    DerReader reader(bytes, DerRules::ber);
    const auto outer = reader.Next(platform::tag::kSequence);
    ASSERT_TRUE(outer);
    EXPECT_EQ(outer->encoded.size(), 12U);
    EXPECT_EQ(outer->contents.size(), 8U);
    EXPECT_TRUE(reader.Next(platform::tag::kNull));
    EXPECT_TRUE(reader.AtEnd());
}

TEST(DerReader, DepthCostsNeitherStackNorTime) {
    // A million levels never closed, and a million opened and closed.
    const Bytes opened = Repeat(1'000'000, {0x30, 0x80}), closed = Joined({opened, Repeat(1'000'000, {0, 0})});
    EXPECT_FALSE(DerReader(opened, DerRules::ber).Next());
    EXPECT_TRUE(DerReader(closed, DerRules::ber).Next());
    EXPECT_FALSE(platform::ToDer(closed));
}

TEST(ToDer, GivesTheEncodingThatAnybodyWouldHaveWritten) {
    Bytes pieces = Repeat(2, Joined({{4, 100}, Bytes(100, 7)}));
    const std::pair<Bytes, Bytes> cases[] = {
        {{0x30, 3, 2, 1, 5}, {0x30, 3, 2, 1, 5}},              // nothing to do
        {{0x30, 0x83, 0, 0, 3, 2, 1, 5}, {0x30, 3, 2, 1, 5}},  // long length
        {{0x31, 0x80, 0x30, 0x80, 5, 0, 0, 0, 0, 0}, {0x31, 4, 0x30, 2, 5, 0}},
        {{0x24, 0x80, 4, 1, 'a', 0x24, 3, 4, 1, 'b', 4, 0, 0, 0}, {4, 2, 'a', 'b'}},
        {{0x2C, 6, 0x0C, 1, 'a', 0x0C, 1, 'b'}, {0x0C, 2, 'a', 'b'}},
        {Joined({{0x24, 0x80}, pieces, {0, 0}}), Joined({{4, 0x81, 200}, Bytes(200, 7)})},
    };
    for (const auto& [ber, der] : cases)
        EXPECT_EQ(platform::ToDer(ber), der);
    // A piece of another type in a string, and a piece that does not end.
    EXPECT_FALSE(platform::ToDer(Bytes{0x24, 3, 2, 1, 5}));
    EXPECT_FALSE(platform::ToDer(Bytes{0x24, 3, 4, 9, 5}));
    EXPECT_FALSE(platform::ToDer(Bytes{0x1F, 0x81, 1, 0})) << "an identifier of several octets is not cut to one";
}

TEST(ByteSource, FilesAndMemoryAnswerTheSame) {
    const tests::Profile profile;
    const std::size_t size = (std::size_t{3} << 20) + 17;
    Bytes bytes(size);
    for (std::size_t i = 0; i < size; ++i)
        bytes[i] = static_cast<std::uint8_t>(i * 2654435761U >> 13);
    const auto path = profile.Write("bytes", platform::AsText(bytes));
    auto file = platform::InputFile::Open(path);
    ASSERT_TRUE(file);
    platform::FileSource source(std::move(*file));
    for (const std::uint64_t offset : {std::size_t{0}, std::size_t{1} << 20, (std::size_t{1} << 20) - 8, size - 1, size,
                                       size + 5, std::size_t{5}, std::size_t{2} << 20}) {
        const auto view = source.View(offset, 16, 16);
        ASSERT_TRUE(view) << offset;
        const std::size_t expected = offset >= size ? 0 : std::min<std::size_t>(16, size - offset);
        ASSERT_EQ(view->size(), expected) << offset;
        EXPECT_TRUE(std::equal(view->begin(), view->end(), bytes.begin() + static_cast<std::ptrdiff_t>(offset)));
    }
    EXPECT_EQ(source.Copy(0, size), bytes);
    EXPECT_FALSE(source.Copy(1, size));
    EXPECT_FALSE(source.Copy(~std::uint64_t{0}, 2));
}

TEST(ByteSource, AFileThatShrinksIsAFaultAndNotAnEnd) {
    const tests::Profile profile;
    const auto path = profile.Write("shrinks", std::string(std::size_t{2} << 20, 'x'));
    auto file = platform::InputFile::Open(path);
    ASSERT_TRUE(file);
    platform::FileSource source(std::move(*file));
    std::filesystem::resize_file(path, 1000);
    EXPECT_FALSE(source.View(0, 16, 16));
    EXPECT_NE(platform::GetLastError(), platform::ERROR_SUCCESS);
}

Bytes MakeTstInfo(std::string_view time, bool extra = false) {
    platform::DerWriter out;
    out.Sequence([&] {
        out.Integer(1).Oid("1.2.3");
        out.Sequence([&] { out.AlgorithmWithNull("2.16.840.1.101.3.4.2.1").OctetString(Bytes(32, 9)); });
        out.Integer(0xC0FFEE).Text(platform::tag::kGeneralizedTime, time);
        out.Sequence([&] { out.Integer(1); }).Boolean(true).Integer(77);
        if (extra) out.Null();
    });
    return out.Take();
}

TEST(TstInfo, TimesThatAreNoneAndUnknownFieldsAreRefused) {
    for (const char* time : {"", "20240229101500", "20230229101500Z", "20241301101500Z", "20240101241500Z",
                             "20240101101500.Z", "20240101101500+0200", "2024010110150Z", "20240101101500,5Z"}) {
        EXPECT_FALSE(platform::ReadTstInfo(MakeTstInfo(time))) << time;
    }
    EXPECT_TRUE(platform::ReadTstInfo(MakeTstInfo("20240229101500.5Z")));
    EXPECT_FALSE(platform::ReadTstInfo(MakeTstInfo("20240229101500Z", true)));
}

}  // namespace

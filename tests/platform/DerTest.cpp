// Reading and writing DER and BER: the reader over memory and files, the one of certificates, object identifiers.

#include <gtest/gtest.h>
#include <openssl/asn1.h>
#include <openssl/objects.h>

#include "platform/Certificates.h"
#include "platform/Files.h"
#include "platform/formats/ByteSource.h"
#include "platform/formats/Der.h"
#include "platform/formats/Oid.h"
#include "platform/formats/TstInfo.h"
#include "platform/posix/Ber.h"
#include "platform/posix/CertificateFile.h"
#include "tests/platform/DerPieces.h"
#include "tests/support/Corpora.h"
#include "tests/support/Profile.h"

namespace {

using namespace platform;
using tests::FromHex;
using tests::Joined;
using tests::ReadTable;
using tests::Tlv;

Bytes Repeat(std::size_t count, const Bytes& unit) {
    Bytes all;
    for (std::size_t i = 0; i < count; ++i)
        all.insert(all.end(), unit.begin(), unit.end());
    return all;
}

TEST(DerReader, LengthsThatBreakTheRulesOrLeadOutsideAreRefused) {
    const auto expect = [](const Bytes& bytes, bool der, bool ber) {
        EXPECT_EQ(DerReader(bytes, DerRules::der).Next().has_value(), der) << testing::PrintToString(bytes);
        EXPECT_EQ(DerReader(bytes, DerRules::ber).Next().has_value(), ber) << testing::PrintToString(bytes);
    };
    for (const auto& good : {FromHex("040107"), FromHex("1F818080800100"), Joined({{4, 0x81, 0x80}, Bytes(0x80)})})
        expect(good, true, true);
    // Longer forms than needed, also by one octet, and an indefinite length.
    for (const auto& lax : {FromHex("04810107"), FromHex("30800000"), Joined({{4, 0x81, 0x7F}, Bytes(0x7F)})})
        expect(lax, false, true);
    // Cut or beyond the end; a leading zero, 2^63, 2^64-1, nine octets, reserved; indefinite but primitive, without its
    // end or with half of it, with an element beyond it; a tag number without end.
    for (const char* bad : {"", "04", "040201", "04820080", "048201", "04888000000000000000", "0488FFFFFFFFFFFFFFFF",
                            "048900000000000000000107", "04FF0107", "04800000", "3080040107", "308000", "308004090000",
                            "FFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFF"})
        expect(FromHex(bad), false, false);
}

TEST(DerReader, IndefiniteLengthsEndAtTheirOwnEndAndDepthCostsNeitherStackNorTime) {
    // SEQUENCE { SEQUENCE { OCTET STRING 00 00 } } with both lengths indefinite, and one more element behind.
    const Bytes bytes = FromHex("3080308004020000000000000500");
    DerReader reader(bytes, DerRules::ber);
    const auto outer = reader.Next(tag::kSequence);
    ASSERT_TRUE(outer);
    EXPECT_EQ(outer->encoded.size(), 12U);
    EXPECT_EQ(outer->contents.size(), 8U);
    EXPECT_TRUE(reader.Next(tag::kNull));
    EXPECT_TRUE(reader.AtEnd());
    const Bytes opened = Repeat(1'000'000, {0x30, 0x80}), closed = Joined({opened, Repeat(1'000'000, {0, 0})});
    EXPECT_FALSE(DerReader(opened, DerRules::ber).Next());
    EXPECT_TRUE(DerReader(closed, DerRules::ber).Next());
    EXPECT_FALSE(ToDer(closed));
}

TEST(ToDer, GivesTheEncodingThatAnybodyWouldHaveWritten) {
    const std::pair<const char*, const char*> cases[] = {
        {"3003020105", "3003020105"},        // nothing to do
        {"3083000003020105", "3003020105"},  // long length
        {"31803080050000000000", "310430020500"},
        {"2480040161240304016204000000", "04026162"},
        {"2C060C01610C0162", "0C026162"},
    };
    for (const auto& [ber, der] : cases)
        EXPECT_EQ(ToDer(FromHex(ber)), FromHex(der)) << ber;
    const Bytes pieces = Repeat(2, Tlv(tag::kOctetString, Bytes(100, 7)));
    EXPECT_EQ(ToDer(Joined({{0x24, 0x80}, pieces, {0, 0}})), Joined({{4, 0x81, 200}, Bytes(200, 7)}));
    // A piece of another type in a string, one that does not end, an identifier that must not be cut to one octet.
    for (const char* bad : {"2403020105", "2403040905", "1F810100"})
        EXPECT_FALSE(ToDer(FromHex(bad))) << bad;
}

TEST(ByteSource, FilesAndMemoryAnswerTheSameAndAFileThatShrinksIsAFault) {
    const tests::Profile profile;
    const std::size_t size = (std::size_t{3} << 20) + 17;
    Bytes bytes(size);
    for (std::size_t i = 0; i < size; ++i)
        bytes[i] = static_cast<std::uint8_t>(i * 2654435761U >> 13);
    const auto path = profile.Write("bytes", AsText(bytes));
    auto file = InputFile::Open(path);
    ASSERT_TRUE(file);
    FileSource source(std::move(*file));
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
    std::filesystem::resize_file(path, 1000);
    SetLastError(ERROR_SUCCESS);
    EXPECT_FALSE(source.View(0, 16, 16));
    EXPECT_NE(GetLastError(), ERROR_SUCCESS);
}

Bytes MakeTstInfo(std::string_view time, bool extra = false) {
    DerWriter out;
    out.Sequence([&] {
        out.Integer(1).Oid("1.2.3");
        out.Sequence([&] { out.AlgorithmWithNull("2.16.840.1.101.3.4.2.1").OctetString(Bytes(32, 9)); });
        out.Integer(0xC0FFEE).Text(tag::kGeneralizedTime, time);
        out.Sequence([&] { out.Integer(1); }).Boolean(true).Integer(77);
        if (extra) out.Null();
    });
    return out.Take();
}

TEST(TstInfo, TimesThatAreNoneAndUnknownFieldsAreRefused) {
    for (const char* time : {"", "20240229101500", "20230229101500Z", "20241301101500Z", "20240101241500Z",
                             "20240101101500.Z", "20240101101500+0200", "2024010110150Z", "20240101101500,5Z"})
        EXPECT_FALSE(ReadTstInfo(MakeTstInfo(time))) << time;
    EXPECT_TRUE(ReadTstInfo(MakeTstInfo("20240229101500.5Z")));
    EXPECT_FALSE(ReadTstInfo(MakeTstInfo("20240229101500Z", true)));
}

TEST(DerWriter, LengthsTakeTheShortestFormAtEveryBoundary) {
    const std::pair<std::uint64_t, const char*> cases[] = {{0, "0400"},
                                                           {0x7F, "047F"},
                                                           {0x80, "048180"},
                                                           {0xFF, "0481FF"},
                                                           {0x100, "04820100"},
                                                           {0xFFFF, "0482FFFF"},
                                                           {0x10000, "0483010000"},
                                                           {0x1000000, "048401000000"},
                                                           {0x100000000, "04850100000000"},
                                                           {~std::uint64_t{0}, "0488FFFFFFFFFFFFFFFF"}};
    for (const auto& [size, header] : cases) {
        EXPECT_EQ(DerHeader(4, size), FromHex(header)) << size;
        EXPECT_EQ(DerHeaderSize(size), FromHex(header).size()) << size;
    }
}

TEST(DerWriter, IntegersAreMinimalAndNeverNegative) {
    const std::pair<const char*, const char*> cases[] = {{"", "020100"},     {"0000", "020100"},
                                                         {"7F", "02017F"},   {"80", "02020080"},
                                                         {"0012", "020112"}, {"FF01", "020300FF01"}};
    for (const auto& [magnitude, expected] : cases)
        EXPECT_EQ(DerWriter().UnsignedInteger(FromHex(magnitude)).Take(), FromHex(expected)) << magnitude;
    EXPECT_EQ(DerWriter().Integer(0).Integer(1).Integer(0x80).Integer(0x8000000000000000).Take(),
              FromHex("020100020101020200800209008000000000000000"));
}

TEST(Oid, TextAndOctetsAgreeWithOpenSsl) {
    for (const char* text : {"0.0", "1.39", "2.0", "2.40", "2.999.3", "1.2.840.113549.1.9.16.2.14", "2.5.29.37.0",
                             "1.3.6.1.4.1.311.10.3.12", "2.100.18446744073709551615", "1.2.127.128.16383.16384"}) {
        const std::unique_ptr<ASN1_OBJECT, decltype(&ASN1_OBJECT_free)> object(OBJ_txt2obj(text, 1), ASN1_OBJECT_free);
        ASSERT_NE(object, nullptr) << text;
        const Bytes octets(OBJ_get0_data(object.get()), OBJ_get0_data(object.get()) + OBJ_length(object.get()));
        EXPECT_EQ(OidFromText(text), octets) << text;
        EXPECT_EQ(OidToText(octets), text);
    }
    // Beyond 64 bits: 2.25 with the UUID of all ones.
    EXPECT_EQ(OidToText(FromHex("6983FFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFF7F")),
              "2.25.340282366920938463463374607431768211455");
}

TEST(Oid, WhatIsNoIdentifierIsRefused) {
    for (const Bytes& octets : {Bytes{}, Bytes{0x80}, Bytes{0x2A, 0x86}, Bytes{0x2A, 0x80, 0x01}, Bytes(200, 0xFF)})
        EXPECT_FALSE(OidToText(octets));
    for (const char* text : {"", "1", "1.", ".1", "3.1", "1.40", "1..2", "1.2.", "1.02", "1.-2", "1. 2", "1.2a",
                             "1.2.18446744073709551616"}) {
        EXPECT_FALSE(OidFromText(text)) << text;
        EXPECT_FALSE(DerWriter().Oid(text).Valid()) << text;
    }
}

TEST(Ber, TimesAreReadInEveryFormThatMakersUseAndNoOther) {
    const auto table = ReadTable(NORVIK_SOURCE_DIR "/tests/data/platform/times.tsv");
    ASSERT_EQ(table.size(), 21U);
    for (const auto& row : table) {
        const bool isUtc = row[0] == "UTCTime";
        const Bytes der = Tlv(isUtc ? posix::kBerUtcTime : posix::kBerGeneralizedTime, AsBytes(row[1]));
        posix::BerReader reader(der);
        SetLastError(ERROR_SUCCESS);
        const auto moment = posix::ReadTime(reader);
        EXPECT_EQ(moment ? std::to_string(UnixFromFileTime(*moment)) : "none", row[2]) << row[1];
        EXPECT_EQ(moment.has_value(), GetLastError() == ERROR_SUCCESS) << row[1];
    }
}

TEST(Ber, HostileLengthsAndDepthsEndInAnError) {
    // Nested, each a little shorter than the one around it, or without an end; a length beyond everything, and wider.
    for (const Bytes& bytes : {Repeat(10'000, {0x30, 0x80}), Repeat(10'000, {0x30, 0x82, 0xFF, 0xFF}),
                               FromHex("30887FFFFFFFFFFFFFFF"), FromHex("308A01000000000000000000"), FromHex("30"),
                               FromHex("3081"), FromHex("04800000"), FromHex("3F0100")}) {
        SetLastError(ERROR_SUCCESS);
        EXPECT_FALSE(posix::BerReader(bytes).Next());
        EXPECT_NE(GetLastError(), ERROR_SUCCESS);
        EXPECT_FALSE(CertCreateCertificateContext(bytes));
        EXPECT_EQ(posix::ReadCertificateFile(bytes).Count(), 0U);
    }
}

}  // namespace

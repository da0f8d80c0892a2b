#include "platform/formats/DerWriter.h"

#include <gtest/gtest.h>
#include <openssl/asn1.h>
#include <openssl/objects.h>

#include "platform/formats/Oid.h"

namespace {

using platform::Bytes;
using platform::DerWriter;

TEST(DerWriter, LengthsTakeTheShortestFormAtEveryBoundary) {
    const std::pair<std::uint64_t, Bytes> cases[] = {
        {0, {4, 0}},
        {0x7F, {4, 0x7F}},
        {0x80, {4, 0x81, 0x80}},
        {0xFF, {4, 0x81, 0xFF}},
        {0x100, {4, 0x82, 1, 0}},
        {0xFFFF, {4, 0x82, 0xFF, 0xFF}},
        {0x10000, {4, 0x83, 1, 0, 0}},
        {0x1000000, {4, 0x84, 1, 0, 0, 0}},
        {0x100000000, {4, 0x85, 1, 0, 0, 0, 0}},
        {~std::uint64_t{0}, {4, 0x88, 255, 255, 255, 255, 255, 255, 255, 255}}};
    for (const auto& [size, header] : cases) {
        EXPECT_EQ(platform::DerHeader(4, size), header) << size;
        EXPECT_EQ(platform::DerHeaderSize(size), header.size()) << size;
    }
}

TEST(DerWriter, IntegersAreMinimalAndNeverNegative) {
    const std::pair<Bytes, Bytes> cases[] = {{{}, {0}},           {{0, 0}, {0}},       {{0x7F}, {0x7F}},
                                             {{0x80}, {0, 0x80}}, {{0, 0x12}, {0x12}}, {{0xFF, 1}, {0, 0xFF, 1}}};
    for (const auto& [magnitude, contents] : cases) {
        DerWriter out;
        out.UnsignedInteger(magnitude);
        Bytes expected{2, static_cast<std::uint8_t>(contents.size())};
        expected.insert(expected.end(), contents.begin(), contents.end());
        EXPECT_EQ(out.Take(), expected);
    }
    DerWriter out;
    out.Integer(0).Integer(1).Integer(0x80).Integer(0x8000000000000000);
    EXPECT_EQ(out.Take(), (Bytes{2, 1, 0, 2, 1, 1, 2, 2, 0, 0x80, 2, 9, 0, 0x80, 0, 0, 0, 0, 0, 0, 0}));
}

TEST(Oid, TextAndOctetsAgreeWithOpenSsl) {
    for (const char* text : {"0.0", "1.39", "2.0", "2.40", "2.999.3", "1.2.840.113549.1.9.16.2.14", "2.5.29.37.0",
                             "1.3.6.1.4.1.311.10.3.12", "2.100.18446744073709551615", "1.2.127.128.16383.16384"}) {
        ASN1_OBJECT* object = OBJ_txt2obj(text, 1);
        ASSERT_NE(object, nullptr) << text;
        const Bytes octets(OBJ_get0_data(object), OBJ_get0_data(object) + OBJ_length(object));
        ASN1_OBJECT_free(object);
        EXPECT_EQ(platform::OidFromText(text), octets) << text;
        EXPECT_EQ(platform::OidToText(octets), text);
    }
}

TEST(Oid, ArcsBeyond64BitsAreShownExactly) {
    // 2.25 with the UUID of all ones: 2^128 - 1.
    Bytes octets{0x69, 0x83};
    octets.insert(octets.end(), 17, 0xFF);
    octets.push_back(0x7F);
    EXPECT_EQ(platform::OidToText(octets), "2.25.340282366920938463463374607431768211455");
}

TEST(Oid, WhatIsNoIdentifierIsRefused) {
    for (const Bytes& octets : {Bytes{}, Bytes{0x80}, Bytes{0x2A, 0x86}, Bytes{0x2A, 0x80, 0x01}, Bytes(200, 0xFF)}) {
        EXPECT_FALSE(platform::OidToText(octets).has_value());
    }
    for (const char* text : {"", "1", "1.", ".1", "3.1", "1.40", "1..2", "1.2.", "1.02", "1.-2", "1. 2", "1.2a",
                             "1.2.18446744073709551616"}) {
        EXPECT_FALSE(platform::OidFromText(text).has_value()) << text;
        DerWriter out;
        out.Oid(text);
        EXPECT_FALSE(out.Valid()) << text;
    }
}

}  // namespace

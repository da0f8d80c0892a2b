#include "platform/Hash.h"

#include <gtest/gtest.h>

#include "tests/support/Process.h"

namespace {

using namespace platform;
using H = HashAlgorithm;

TEST(Hash, EveryAlgorithmGivesTheDigestThatOpensslGives) {
    const std::tuple<H, const char*, const char*> cases[] = {
        {H::md5, "md5", "1.2.840.113549.2.5"},
        {H::sha1, "sha1", "1.3.14.3.2.26"},
        {H::sha224, "sha224", "2.16.840.1.101.3.4.2.4"},
        {H::sha256, "sha256", "2.16.840.1.101.3.4.2.1"},
        {H::sha384, "sha384", "2.16.840.1.101.3.4.2.2"},
        {H::sha512, "sha512", "2.16.840.1.101.3.4.2.3"},
        {H::sha3_256, "sha3-256", "2.16.840.1.101.3.4.2.8"},
        {H::sha3_384, "sha3-384", "2.16.840.1.101.3.4.2.9"},
        {H::sha3_512, "sha3-512", "2.16.840.1.101.3.4.2.10"},
    };
    for (const auto& [algorithm, name, oid] : cases) {
        const Bytes digest = Digest(algorithm, AsBytes("abc"));
        const std::string option = std::string("-").append(name);
        EXPECT_EQ(AsText(digest), tests::RunProgram({"openssl", "dgst", option, "-binary"}, {.input = "abc"}).output);
        EXPECT_EQ(DigestSize(algorithm), digest.size());
        EXPECT_EQ(NameOf(algorithm), name);
        EXPECT_EQ(OidOf(algorithm), oid);
        EXPECT_EQ(HashFromOid(oid), algorithm);
        EXPECT_EQ(HashFromName(name), algorithm);
    }
    EXPECT_EQ(HashFromName("SHA-256"), H::sha256);
    EXPECT_EQ(HashFromName("SHA-3-512"), H::sha3_512);
    EXPECT_EQ(HashFromName("sha2560"), std::nullopt);
    EXPECT_EQ(HashFromOid("1.2.840.113549.2.55"), std::nullopt);
}

TEST(Hash, PiecesCopiesAndASecondUseGiveTheSameDigest) {
    Hash hash(H::sha256);
    const auto whole = Digest(H::sha256, AsBytes("abcdef"));
    for (int round = 0; round < 2; ++round) {
        hash.Update(AsBytes("abc"));
        hash.Update({});
        Hash copy = hash;
        hash.Update(AsBytes("other"));
        copy.Update(AsBytes("def"));
        EXPECT_EQ(copy.Finish(), whole);
        EXPECT_NE(hash.Finish(), whole);
    }
    EXPECT_EQ(hash.Finish(), Digest(H::sha256, {}));
}

TEST(Hash, AnAlgorithmThatTheHostLacksIsToldAsSuch) {
    SetLastError(ERROR_SUCCESS);
    Hash hash(H::md2);
    EXPECT_FALSE(hash);
    EXPECT_EQ(GetLastError(), NTE_BAD_ALGID);
    hash.Update(AsBytes("abc"));
    EXPECT_TRUE(hash.Finish().empty());
    EXPECT_FALSE(Hash(hash));
}

}  // namespace

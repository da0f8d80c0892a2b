#include "platform/Hash.h"

#include <gtest/gtest.h>

#include <array>
#include <thread>

namespace platform {
namespace {

std::string Hex(ByteView bytes) {
    std::string text;
    for (const auto byte : bytes) {
        text += "0123456789abcdef"[byte >> 4];
        text += "0123456789abcdef"[byte & 15];
    }
    return text;
}

struct Vector {
    HashAlgorithm algorithm;
    const char* name;
    const char* oid;
    const char* ofAbc;  // by openssl dgst
};
const Vector kVectors[] = {
    {HashAlgorithm::md5, "md5", "1.2.840.113549.2.5", "900150983cd24fb0d6963f7d28e17f72"},
    {HashAlgorithm::sha1, "sha1", "1.3.14.3.2.26", "a9993e364706816aba3e25717850c26c9cd0d89d"},
    {HashAlgorithm::sha224, "sha224", "2.16.840.1.101.3.4.2.4",
     "23097d223405d8228642a477bda255b32aadbce4bda0b3f7e36c9da7"},
    {HashAlgorithm::sha256, "sha256", "2.16.840.1.101.3.4.2.1",
     "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad"},
    {HashAlgorithm::sha384, "sha384", "2.16.840.1.101.3.4.2.2",
     "cb00753f45a35e8bb5a03d699ac65007272c32ab0eded1631a8b605a43ff5bed8086072ba1e7cc2358baeca134c825a7"},
    {HashAlgorithm::sha512, "sha512", "2.16.840.1.101.3.4.2.3",
     "ddaf35a193617abacc417349ae20413112e6fa4e89a97ea20a9eeee64b55d39a2192992a274fc1a836ba3c23a3feebbd454d4423643ce80e2"
     "a9ac94fa54ca49f"},
    {HashAlgorithm::sha3_256, "sha3-256", "2.16.840.1.101.3.4.2.8",
     "3a985da74fe225b2045c172d6bd390bd855f086e3e9d525b46bfe24511431532"},
    {HashAlgorithm::sha3_384, "sha3-384", "2.16.840.1.101.3.4.2.9",
     "ec01498288516fc926459f58e2c6ad8df9b473cb0fc08c2596da7cf0e49be4b298d88cea927ac7f539f1edf228376d25"},
    {HashAlgorithm::sha3_512, "sha3-512", "2.16.840.1.101.3.4.2.10",
     "b751850b1a57168a5693cd924b6b096e08f621827444f70d884f5d0240d2712e10e116e9192af3c91a7ec57647e3934057340b4cf408d5a56"
     "592f8274eec53f0"},
};

TEST(Hash, EveryAlgorithmGivesItsKnownDigest) {
    for (const auto& vector : kVectors) {
        EXPECT_EQ(Hex(Digest(vector.algorithm, AsBytes("abc"))), vector.ofAbc) << vector.name;
        EXPECT_EQ(DigestSize(vector.algorithm) * 2, std::string_view(vector.ofAbc).size());
        EXPECT_EQ(NameOf(vector.algorithm), vector.name);
        EXPECT_EQ(OidOf(vector.algorithm), vector.oid);
        EXPECT_EQ(HashFromOid(vector.oid), vector.algorithm);
        EXPECT_EQ(HashFromName(vector.name), vector.algorithm);
    }
    EXPECT_EQ(HashFromName("SHA-256"), HashAlgorithm::sha256);
    EXPECT_EQ(HashFromName("SHA-3-512"), HashAlgorithm::sha3_512);
    EXPECT_EQ(HashFromName("sha2560"), std::nullopt);
    EXPECT_EQ(HashFromOid("1.2.840.113549.2.55"), std::nullopt);
}

TEST(Hash, PiecesCopiesAndASecondUseGiveTheSameDigest) {
    Hash hash(HashAlgorithm::sha256);
    const auto whole = Digest(HashAlgorithm::sha256, AsBytes("abcdef"));
    for (int round = 0; round < 2; ++round) {
        hash.Update(AsBytes("abc"));
        hash.Update({});
        Hash copy = hash;
        hash.Update(AsBytes("other"));
        copy.Update(AsBytes("def"));
        EXPECT_EQ(copy.Finish(), whole);
        EXPECT_NE(hash.Finish(), whole);
    }
    EXPECT_EQ(hash.Finish(), Digest(HashAlgorithm::sha256, {}));
    hash.Update(AsBytes("abc"));
    const Hash moved = std::move(hash);
    EXPECT_TRUE(moved);
}

TEST(Hash, AnAlgorithmThatTheHostLacksIsToldAsSuch) {
    SetLastError(0);
    Hash hash(HashAlgorithm::md2);
    EXPECT_FALSE(hash);
    EXPECT_EQ(GetLastError(), NTE_BAD_ALGID);
    hash.Update(AsBytes("abc"));
    EXPECT_TRUE(hash.Finish().empty());
    EXPECT_FALSE(Hash(hash));
    EXPECT_TRUE(Digest(HashAlgorithm::md2, AsBytes("abc")).empty());
}

TEST(Hash, ThreadsDoNotDisturbEachOther) {
    const auto expected = Digest(HashAlgorithm::sha1, AsBytes("abc"));
    std::vector<std::thread> threads;
    std::array<int, 4> wrong{};
    for (int& count : wrong) {
        threads.emplace_back([&count, &expected] {
            for (int i = 0; i < 2000; ++i)
                count += Digest(HashAlgorithm::sha1, AsBytes("abc")) != expected;
        });
    }
    for (auto& thread : threads)
        thread.join();
    for (const int count : wrong)
        EXPECT_EQ(count, 0);
}

}  // namespace
}  // namespace platform

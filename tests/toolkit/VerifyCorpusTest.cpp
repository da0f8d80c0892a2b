// Messages made by other people's programs, beside what is known of them.

#include <gtest/gtest.h>

#include <map>

#include "platform/Files.h"
#include "platform/Hash.h"
#include "tests/support/Corpora.h"
#include "tests/toolkit/MessageParts.h"
#include "tests/toolkit/VerifySupport.h"

namespace {

using platform::Bytes;
using testing_support::Verify;
using tests::Corpus;
using tests::ReadTable;

Bytes Content(const std::filesystem::path& file) {
    return platform::ReadWholeFile(file).value_or(Bytes{});
}

bool KnownGood(const std::string& expected, const std::string& verified) {
    for (const char* words : {"VALID", "CMS signature VALID", "CMS ok", "signature ok", "gpgsm good"})
        if (expected.starts_with(words)) return true;
    return expected.empty() && verified == "ok";
}

const std::map<std::string, std::uint32_t> kTypes{{"pkcs7-data", platform::CMSG_DATA},
                                                  {"pkcs7-signedData", platform::CMSG_SIGNED},
                                                  {"pkcs7-envelopedData", platform::CMSG_ENVELOPED},
                                                  {"pkcs7-signedAndEnvelopedData", platform::CMSG_SIGNED_AND_ENVELOPED},
                                                  {"pkcs7-digestData", platform::CMSG_HASHED},
                                                  {"pkcs7-encryptedData", platform::CMSG_ENCRYPTED}};

// The type of a binary message, by the host's message service.
std::optional<std::uint32_t> TypeOf(const Bytes& bytes) {
    const auto message = platform::CryptMsgOpenToDecode(platform::PKCS_7_ASN_ENCODING, 0);
    if (!platform::CryptMsgUpdate(message, bytes, true)) return std::nullopt;
    return platform::CryptMsgGetParam(message, platform::CMSG_TYPE_PARAM);
}

// Where we judge otherwise, with the words that tell why, stands in tests/data/corpora.
TEST(VerifyCorpus, AgreesWithWhatIsKnownOfOtherPeoplesMessages) {
    const auto folder = Corpus("cms");
    auto index = ReadTable(folder / "INDEX.tsv");
    if (index.empty()) GTEST_SKIP() << "no corpus of messages";
    index.erase(index.begin());
    std::map<std::string, std::string> others;
    for (const auto& row : ReadTable(NORVIK_SOURCE_DIR "/tests/data/corpora/cms.tsv"))
        others[row[0]] = row[1];
    int good = 0, typed = 0;
    for (const auto& row : index) {
        const auto &path = row[0], &kind = row[1], &encoding = row[3], &beside = row[12];
        SCOPED_TRACE(path);
        const Bytes message = Content(folder / path), content = Content(folder / beside);
        const bool detached = row[5] == "detached" && !beside.empty();
        const auto verdict = Verify(message, {}, detached ? &content : nullptr);
        const auto other = others.find(path);
        EXPECT_EQ(verdict.valid, other == others.end() ? KnownGood(row[11], row[10]) : other->second == "valid")
            << verdict.log;
        if (other != others.end() && !verdict.valid) {
            EXPECT_NE(verdict.log.find(other->second), std::string::npos) << verdict.log;
        }
        good += verdict.valid ? 1 : 0;
        if (const auto type = kTypes.find(kind); type != kTypes.end() && encoding == "DER") {
            EXPECT_EQ(TypeOf(message), type->second);
            ++typed;
        }
    }
    EXPECT_GE(good, 30);
    EXPECT_GE(typed, 80);
}

// Seeds that were made to break readers: whatever they hold, nobody's content is in them.
TEST(VerifyCorpus, NoMalformedMessageIsValid) {
    const auto folder = Corpus("fuzz/cms");
    if (!std::filesystem::exists(folder)) GTEST_SKIP() << "no corpus beside the source tree";
    int count = 0;
    const Bytes content{'h', 'i'};
    for (const auto& entry : std::filesystem::directory_iterator(folder)) {
        const Bytes message = Content(entry.path());
        EXPECT_FALSE(Verify(message).valid) << entry.path();
        EXPECT_FALSE(Verify(message, {}, &content).valid) << entry.path();
        ++count;
    }
    EXPECT_GT(count, 0);
}

TEST(VerifyCorpus, TimestampTokensOfOtherAuthoritiesAreJudgedRight) {
    const auto index = ReadTable(Corpus("timestamps") / "INDEX.tsv");
    if (index.empty()) GTEST_SKIP() << "no corpus of timestamps";
    int good = 0;
    for (const auto& row : index) {
        if (!row[0].ends_with(".tsr")) continue;
        SCOPED_TRACE(row[0]);
        const auto verdict = Verify(testing_support::ElementsOf(Content(Corpus("timestamps") / row[0])).at(1));
        const auto info = platform::ReadTstInfo(verdict.content);
        ASSERT_TRUE(info.has_value());
        // Tokens without certificates cannot be verified by themselves.
        const bool broken = row[0].find("invalid-signature") != std::string::npos;
        EXPECT_EQ(verdict.valid, !broken && !verdict.findings.certificates.empty()) << verdict.log;
        good += verdict.valid ? 1 : 0;
        const auto hash = platform::HashFromOid(info->imprintAlgorithm.oid);
        ASSERT_TRUE(hash.has_value());
        for (const std::string& field : row) {
            if (field.find("\"\"hello\"\"") == std::string::npos) continue;
            EXPECT_EQ(platform::Digest(*hash, platform::AsBytes("hello")), info->imprint);
        }
    }
    EXPECT_GE(good, 4);
}

}  // namespace

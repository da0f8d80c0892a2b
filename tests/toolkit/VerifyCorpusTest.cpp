// Messages made by other people's programs, beside what is known of them.

#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <map>
#include <sstream>

#include "platform/Hash.h"
#include "platform/formats/Der.h"
#include "tests/toolkit/VerifySupport.h"

namespace {

using platform::Bytes;
using testing_support::Verify;

struct Row {
    std::string path, kind, detached, opensslVerdict, expected, content;
};

std::vector<Row> ReadIndex(const std::filesystem::path& folder) {
    std::vector<Row> rows;
    std::ifstream index(folder / "INDEX.tsv");
    std::string line;
    std::getline(index, line);
    while (std::getline(index, line)) {
        std::vector<std::string> fields;
        std::istringstream stream(line);
        for (std::string field; std::getline(stream, field, '\t');)
            fields.push_back(field);
        fields.resize(14);
        rows.push_back({fields[0], fields[1], fields[5], fields[10], fields[11], fields[12]});
    }
    return rows;
}

bool KnownGood(const Row& row) {
    return row.expected.starts_with("VALID") || row.expected.starts_with("CMS signature VALID") ||
           row.expected.starts_with("CMS ok") || row.expected.starts_with("signature ok") ||
           row.expected.starts_with("gpgsm good") || (row.expected.empty() && row.opensslVerdict == "ok");
}

// Good by somebody's judgement and not by ours, with the words that tell why.
const std::map<std::string, std::string, std::less<>> kRejected = {
    // No contentType among the signed attributes: the type of the content could be changed by anybody.
    {"gnupg__text-1.osig.pem", "need exactly one contentType"},
    {"gnupg__text-1.osig-badusage.pem", "need exactly one contentType"},
    {"gnupg__text-2.osig.pem", "need exactly one contentType"},
    // The data stand in another file, which the index does not name.
    {"gnupg__text-1.dsig.pem", "it is a detached signature"},
    // The signer's certificate is not in the message.
    {"mbedtls-framework__pkcs7_data_3_signed.der", "Cannot find the signing certificate."},
    {"mbedtls-framework__pkcs7_data_multiple_signed.der", "Cannot find the signing certificate."},
    {"mbedtls-framework__pkcs7_data_with_signature.der", "Cannot find the signing certificate."},
    {"mbedtls-framework__pkcs7_data_without_cert_signed.der", "Cannot find the signing certificate."},
    {"mbedtls-framework__pkcs7_zerolendata_detached.der", "Cannot find the signing certificate."},
    // RIPEMD-160 is no digest of ours.
    {"mbedtls-framework__pkcs7_data_cert_signed_ripemd160.der", "Unsupported PKCS7 digest algorithm."},
    // One DSA key takes its parameters from an issuer who is not proved at that point.
    {"bc-test-data__4.6.bin", "does not match the decrypted digest"},
    // A mail of several parts is no message: its signature stands in one part and its content in another.
    {"bc-test-data__4.8.eml", "Failed to create PKCS7 from DER."},
    {"openssl__SignedInvalidMappingFromanyPolicyTest7.eml", "Failed to create PKCS7 from DER."},
};

// Good by ours alone, with the reason.
const std::map<std::string, std::string, std::less<>> kAccepted = {
    {"gnutls__pkcs7-cat.p7", "PKCS#7 1.5 content that is no OCTET STRING: the peer of the index does not read it"},
};

TEST(VerifyCorpus, AgreesWithWhatIsKnownOfOtherPeoplesMessages) {
    const auto folder = testing_support::Corpora() / "cms";
    const auto rows = ReadIndex(folder);
    if (rows.empty()) GTEST_SKIP() << "no corpus beside the source tree";
    int agreedGood = 0, agreedBad = 0, rejected = 0;
    for (const auto& row : rows) {
        SCOPED_TRACE(row.path);
        const Bytes message = testing_support::ReadFile(folder / row.path);
        const Bytes content = row.content.empty() ? Bytes{} : testing_support::ReadFile(folder / row.content);
        const bool detached = row.detached == "detached" && !row.content.empty();
        const auto verdict = Verify(message, {}, detached ? &content : nullptr);
        const auto known = kRejected.find(row.path);
        if (known != kRejected.end()) {
            EXPECT_FALSE(verdict.valid);
            EXPECT_NE(verdict.log.find(known->second), std::string::npos) << verdict.log;
            ++rejected;
        } else if (KnownGood(row)) {
            EXPECT_TRUE(verdict.valid) << verdict.log;
            ++agreedGood;
        } else {
            EXPECT_EQ(verdict.valid, kAccepted.contains(row.path)) << verdict.log;
            ++agreedBad;
        }
    }
    RecordProperty("agreedGood", agreedGood);
    RecordProperty("agreedBad", agreedBad);
    RecordProperty("rejected", rejected);
    EXPECT_GE(agreedGood, 30);
}

// Seeds that were made to break readers: whatever they hold, nobody's content is in them.
TEST(VerifyCorpus, NoMalformedMessageIsValid) {
    const auto folder = testing_support::Corpora() / "fuzz" / "cms";
    if (!std::filesystem::exists(folder)) GTEST_SKIP() << "no corpus beside the source tree";
    int count = 0;
    const Bytes content{'h', 'i'};
    for (const auto& entry : std::filesystem::directory_iterator(folder)) {
        const Bytes message = testing_support::ReadFile(entry.path());
        EXPECT_FALSE(Verify(message).valid) << entry.path();
        EXPECT_FALSE(Verify(message, {}, &content).valid) << entry.path();
        ++count;
    }
    EXPECT_GT(count, 0);
}

// The token in a reply of an authority: behind the status.
Bytes TokenOf(const Bytes& reply) {
    auto fields = platform::DerReader(reply, platform::DerRules::ber).Enter(platform::tag::kSequence);
    if (!fields || !fields->Next(platform::tag::kSequence)) return {};
    const auto token = fields->Next(platform::tag::kSequence);
    return token ? platform::CopyOf(token->encoded) : Bytes{};
}

TEST(VerifyCorpus, TimestampTokensOfOtherAuthoritiesAreJudgedRight) {
    const auto folder = testing_support::Corpora() / "timestamps";
    std::ifstream index(folder / "INDEX.tsv");
    if (!index) GTEST_SKIP() << "no corpus beside the source tree";
    std::string line;
    int good = 0;
    while (std::getline(index, line)) {
        const std::string path = line.substr(0, line.find('\t'));
        if (!path.ends_with(".tsr")) continue;
        SCOPED_TRACE(path);
        const auto verdict = Verify(TokenOf(testing_support::ReadFile(folder / path)));
        const auto info = platform::ReadTstInfo(verdict.content);
        ASSERT_TRUE(info.has_value());
        // Tokens without certificates cannot be verified by themselves.
        const bool noCertificates = verdict.findings.certificates.empty();
        const bool broken = path.find("invalid-signature") != std::string::npos;
        EXPECT_EQ(verdict.valid, !broken && !noCertificates) << verdict.log;
        good += verdict.valid ? 1 : 0;
        const auto hash = platform::HashFromOid(info->imprintAlgorithm.oid);
        ASSERT_TRUE(hash.has_value());
        if (line.find("\"\"hello\"\"") != std::string::npos) {
            EXPECT_EQ(platform::Digest(*hash, platform::AsBytes("hello")), info->imprint);
        }
    }
    EXPECT_GE(good, 4);
}

}  // namespace

// Other makers' PFX files: ../shared/corpora/pkcs12 with its INDEX.tsv.

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iostream>
#include <map>
#include <sstream>
#include <vector>

#include "platform/Error.h"
#include "platform/Stores.h"
#include "tests/support/Profile.h"

namespace {

using namespace platform;

struct Sample {
    std::string file, opened, password;
    bool mustFail = false;
};

std::vector<std::string> Split(const std::string& line, char separator) {
    std::vector<std::string> fields;
    std::istringstream in(line);
    for (std::string field; std::getline(in, field, separator);)
        fields.push_back(field);
    return fields;
}

const std::filesystem::path kFolder = std::filesystem::path(NORVIK_SOURCE_DIR) / "../shared/corpora/pkcs12";

std::vector<Sample> ReadIndex() {
    std::vector<Sample> samples;
    std::ifstream index(kFolder / "INDEX.tsv");
    std::string line;
    std::getline(index, line);
    while (std::getline(index, line)) {
        auto fields = Split(line, '\t');
        fields.resize(8);
        const std::string& password = fields[4];
        samples.push_back(
            {fields[0], fields[3], password.starts_with("pass:") ? password.substr(5) : "", fields[6] == "MUST FAIL"});
    }
    return samples;
}

// Where we decide otherwise than the program that made the index, which opened these.
const std::map<std::string, std::string> kRefusedOnPurpose = {
    {"botan__pfx_version_2.pfx", "RFC 7292 knows version 3 alone; the file holds nothing besides"},
    {"gnupg__edward.tester@demo.gnupg.com.p12",
     "its key decrypts to no structure with the right password (that program "
     "prints the certificate, then stops at the key)"},
};
// What it could not open, and what we answer: opened, a reason other than the password, or the password unknown to us.
const std::map<std::string, ErrorCode> kBeyondTheIndex = {
    {"openssl-test__pbmac1_256_256.good.p12", ERROR_SUCCESS},
    {"openssl-test__pbmac1_512_256.good.p12", ERROR_SUCCESS},
    {"openssl-test__pbmac1_sha1_hmac_and_prf.p12", ERROR_SUCCESS},
    {"botan__envelopeddata_content.pfx", NTE_BAD_ALGID},              // sealed for somebody's public key
    {"botan__unknown_bag_crl.pfx", CRYPT_E_BAD_ENCODE},               // neither certificate nor key in it
    {"gnutls__gost01.p12", NTE_BAD_ALGID},                            // GOST R 34.11-94
    {"gnutls__mem-leak.p12", NTE_BAD_ALGID},                          // 1.3.14.3.18.26 is no digest
    {"gnutls__pbmac1_256_256.extended-mac.p12", CRYPT_E_BAD_ENCODE},  // a MAC longer than its digest
};

// The last error, 0 when a store came out.
ErrorCode TryPasswords(const Sample& sample) {
    const std::string bytes = tests::ReadFile(kFolder / sample.file);
    std::vector<std::string> candidates{sample.password};
    if (sample.opened == "unopened") candidates = {"", "1234", "password", "12345"};
    ErrorCode error = ERROR_SUCCESS;
    for (const auto& candidate : candidates) {
        error = PFXImportCertStore(AsBytes(bytes), Secret(candidate)) ? ERROR_SUCCESS : GetLastError();
        if (error != ERROR_INVALID_PASSWORD) break;
    }
    return error;
}

TEST(PfxCorpus, AgreesWithTheIndex) {
    if (!std::filesystem::exists(kFolder)) GTEST_SKIP() << "no corpus at " << kFolder;
    int opened = 0, refused = 0, beyond = 0, onPurpose = 0, unknownPassword = 0;
    for (const auto& sample : ReadIndex()) {
        SCOPED_TRACE(sample.file);
        const ErrorCode error = TryPasswords(sample);
        if (sample.mustFail) {
            EXPECT_NE(error, ERROR_SUCCESS);
            ++refused;
        } else if (kRefusedOnPurpose.contains(sample.file)) {
            EXPECT_EQ(error, CRYPT_E_BAD_ENCODE) << kRefusedOnPurpose.at(sample.file);
            ++onPurpose;
        } else if (sample.opened != "unopened") {
            EXPECT_EQ(error, ERROR_SUCCESS);
            ++opened;
        } else if (const auto known = kBeyondTheIndex.find(sample.file); known != kBeyondTheIndex.end()) {
            EXPECT_EQ(error, known->second);
            ++beyond;
        } else {
            EXPECT_EQ(error, ERROR_INVALID_PASSWORD);  // well-formed, and nobody told us the password
            ++unknownPassword;
        }
    }
    std::cout << "opened " << opened << ", refused as expected " << refused << ", beyond the index " << beyond
              << ", refused on purpose " << onPurpose << ", password unknown " << unknownPassword << "\n";
    EXPECT_GT(opened, 0);
    EXPECT_GT(refused, 0);
}

// With a password that is not theirs, files under a MAC are told apart from damage and from unknown algorithms.
TEST(PfxCorpus, AWrongPasswordIsToldAsSuch) {
    if (!std::filesystem::exists(kFolder)) GTEST_SKIP() << "no corpus at " << kFolder;
    for (const auto& sample : ReadIndex()) {
        if (sample.mustFail || !sample.opened.starts_with("ok") || kRefusedOnPurpose.contains(sample.file)) continue;
        const std::string bytes = tests::ReadFile(kFolder / sample.file);
        const bool opened = static_cast<bool>(PFXImportCertStore(AsBytes(bytes), Secret("not this one")));
        const bool withoutAnyPassword = sample.file == "botan__key_cert_spki_mismatch.pfx";
        EXPECT_EQ(opened, withoutAnyPassword) << sample.file;
        EXPECT_EQ(opened ? ERROR_INVALID_PASSWORD : GetLastError(), ERROR_INVALID_PASSWORD) << sample.file;
    }
}

TEST(PfxCorpus, NoDamagedSeedOpensOrCrashes) {
    const auto folder = std::filesystem::path(NORVIK_SOURCE_DIR) / "../shared/corpora/fuzz";
    if (!std::filesystem::exists(folder)) GTEST_SKIP() << "no corpus at " << folder;
    int tried = 0;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(folder)) {
        if (!entry.is_regular_file()) continue;
        const std::string bytes = tests::ReadFile(entry.path());
        EXPECT_FALSE(PFXImportCertStore(AsBytes(bytes), Secret("password"))) << entry.path();
        CertOpenBytesStore(AsBytes(bytes));
        ++tried;
    }
    EXPECT_GT(tried, 0);
}

}  // namespace

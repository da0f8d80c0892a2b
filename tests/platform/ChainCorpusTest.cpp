// Chains, CRLs and OCSP answers made by another project, with the verdicts of its own verifier. Where ours differ, and
// why, stands in tests/data/corpora.

#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <iostream>

#include "platform/posix/Ocsp.h"
#include "tests/support/ChainWorld.h"
#include "tests/support/Corpora.h"
#include "tests/support/PemFile.h"

namespace {

using namespace platform;
using namespace tests;
namespace fs = std::filesystem;

// What our own tables say of a case, by its name.
using Expected = std::map<std::string, std::string>;
Expected ReadExpected(const char* table) {
    Expected expected;
    for (const auto& row : ReadTable(fs::path(NORVIK_SOURCE_DIR "/tests/data/corpora") / table))
        expected[row[0]] = row[1];
    return expected;
}

std::vector<fs::path> FilesBelow(const std::string& folder, const char* extension) {
    std::vector<fs::path> files;
    if (!fs::exists(Corpus(folder))) return files;
    for (const auto& entry : fs::recursive_directory_iterator(Corpus(folder)))
        if (entry.path().extension() == extension) files.push_back(entry.path());
    std::ranges::sort(files);
    return files;
}

// The verdict on each file beside what is expected, which a table of ours may say otherwise: then it must differ.
template <typename Verdict>
void Compare(const std::vector<fs::path>& files, const Expected& differences, Verdict verdict) {
    std::size_t differed = 0;
    for (const fs::path& file : files) {
        const std::string name =
            file.extension() == ".test" ? file.parent_path().filename() / file.stem() : file.stem();
        const auto [ours, expected] = verdict(file);
        const auto difference = differences.find(name);
        EXPECT_EQ(ours, difference == differences.end() ? expected : difference->second) << name;
        if (difference == differences.end()) continue;
        EXPECT_NE(ours, expected) << name << " is listed as a difference and is none";
        ++differed;
    }
    EXPECT_EQ(differed, differences.size());
    std::cout << files.size() << " files, of which " << differed << " differ for a reason\n";
}

std::string Text(ErrorCode code) {
    char text[11];
    std::snprintf(text, sizeof text, "0x%08x", code);
    return text;
}

constexpr std::pair<std::string_view, const char*> kUsages[] = {{"SERVER_AUTH", "1.3.6.1.5.5.7.3.1"},
                                                                {"CLIENT_AUTH", "1.3.6.1.5.5.7.3.2"},
                                                                {"C2PA_TIMESTAMPING", "1.3.6.1.5.5.7.3.8"},
                                                                {"C2PA_MANIFEST", "1.3.6.1.5.5.7.3.36"}};

// A description of a chain: "key: value" lines, some more than once.
using Description = std::multimap<std::string, std::string>;
std::string ValueOf(const Description& test, const char* key) {
    const auto found = test.find(key);
    return found == test.end() ? "" : found->second;
}

// The code for what the other verifier found; "none" for what has no counterpart here.
std::string CodeFor(const Description& test, const Expected& meanings) {
    ChainContext expected;
    expected.elements.emplace_back();
    const auto [begin, end] = test.equal_range("ERROR");
    for (auto error = begin; error != end; ++error) {
        const auto meaning =
            std::ranges::find_if(meanings, [&](const auto& row) { return error->second.starts_with(row.first); });
        if (meaning == meanings.end()) return "none";
        expected.dwErrorStatus |= std::stoul(meaning->second, nullptr, 16);
    }
    return Text(CertVerifyCertificateChainPolicy(expected));
}

std::string OurCode(const Description& test, const fs::path& folder) {
    std::vector<CertificateContext> chain;
    for (const PemBlock& block : ReadPemFile(folder / ValueOf(test, "chain")))
        chain.push_back(CertCreateCertificateContext(block.der));
    if (chain.empty() || std::ranges::any_of(chain, std::logical_not())) return Text(CRYPT_E_BAD_ENCODE);

    const ChainWorld world;
    const std::string trust = ValueOf(test, "last_cert_trust"), time = ValueOf(test, "utc_time");
    for (const CertificateContext& certificate : chain)
        CertAddCertificateContextToStore(world.others, certificate, CERT_STORE_ADD_ALWAYS);
    const auto addLast = [&](const CertStore& store) {
        CertAddCertificateContextToStore(store, chain.back(), CERT_STORE_ADD_ALWAYS);
    };
    if (trust == "DISTRUSTED") addLast(world.distrusted);
    if (trust == "DISTRUSTED" || trust.starts_with("TRUSTED_ANCHOR") ||
        (trust.starts_with("TRUSTED_LEAF") && chain.size() == 1))
        addLast(world.roots);
    std::tm moment{};
    strptime(("20" + (time == "DEFAULT" ? "211005120000Z" : time)).c_str(), "%Y%m%d%H%M%SZ", &moment);
    std::vector<std::string> usages;
    for (const auto& [name, oid] : kUsages)
        if (ValueOf(test, "key_purpose").starts_with(name)) usages.emplace_back(oid);
    return Text(CertVerifyCertificateChainPolicy(world.Chain(chain.front(), timegm(&moment), 0, usages)));
}

TEST(ChainCorpus, ChainsOfAnotherVerifierGetItsVerdictOrAKnownOther) {
    const auto files = FilesBelow("chains/verify_certificate_chain_unittest", ".test");
    if (files.empty()) GTEST_SKIP() << "the corpus of chains is not here";
    EXPECT_GE(files.size(), 150U);
    const Expected meanings = ReadExpected("chain-errors.tsv");  // what the other verifier says, and our bit for it
    Compare(files, ReadExpected("chains.tsv"), [&](const fs::path& file) {
        Description test;
        std::ifstream lines(file);
        for (std::string line; std::getline(lines, line);)
            if (const auto colon = line.find(": "); colon != std::string::npos)
                test.emplace(line.substr(0, colon), line.substr(colon + 2));
        return std::pair(OurCode(test, file.parent_path()), CodeFor(test, meanings));
    });
}

// What Norvik answers to the file's leaf under its CRL; the last authority in the file is trusted.
std::string VerdictOnCrl(const fs::path& file) {
    ChainWorld world;
    CertificateContext leaf, lastAuthority;
    for (const PemBlock& block : ReadPemFile(file)) {
        if (block.label == "CRL") {
            if (const CrlContext crl = CertCreateCRLContext(block.der)) CertAddCRLContextToStore(world.crls, crl);
        } else if (block.label == "CERTIFICATE") {
            leaf = CertCreateCertificateContext(block.der);
        } else {
            lastAuthority = CertCreateCertificateContext(block.der);
            CertAddCertificateContextToStore(world.others, lastAuthority, CERT_STORE_ADD_ALWAYS);
        }
    }
    CertAddCertificateContextToStore(world.roots, lastAuthority, CERT_STORE_ADD_ALWAYS);
    const auto chain = world.Chain(leaf, 1'489'017'600, CERT_CHAIN_REVOCATION_CHECK_CHAIN, {});
    const std::uint32_t status = chain.elements.at(0).dwErrorStatus;
    if (status & CERT_TRUST_IS_REVOKED) return "revoked";
    return status & CERT_TRUST_REVOCATION_STATUS_UNKNOWN ? "unknown" : "good";
}

// The file's name begins with what the CRL says of the leaf.
TEST(ChainCorpus, CrlsOfAnotherVerifierGetItsVerdictOrAKnownOther) {
    const auto files = FilesBelow("chains/crl_unittest", ".pem");
    if (files.empty()) GTEST_SKIP() << "the corpus of CRLs is not here";
    EXPECT_GE(files.size(), 60U);
    Compare(files, ReadExpected("crl.tsv"), [](const fs::path& file) {
        const std::string name = file.stem();
        const bool good = name.starts_with("good_") || name == "good", revoked = name.starts_with("revoked");
        return std::pair(VerdictOnCrl(file), std::string(good ? "good" : revoked ? "revoked" : "unknown"));
    });
}

// As at its time.
std::string VerdictOnOcsp(const fs::path& file) {
    CertificateContext certificate, issuer;
    Bytes response;
    for (const PemBlock& block : ReadPemFile(file)) {
        if (block.label == "CERTIFICATE") certificate = CertCreateCertificateContext(block.der);
        if (block.label == "CA CERTIFICATE") issuer = CertCreateCertificateContext(block.der);
        if (block.label == "OCSP RESPONSE") response = block.der;
    }
    const std::array path = {certificate, issuer};
    const posix::OcspQuestion question(path);
    if (response.empty()) return "no answer in the file";
    if (!question) return "none";  // a certificate that does not decode
    const ChainEngine none;
    ChainParameters parameters;
    parameters.engine = &none;
    posix::ChainSources sources(certificate, parameters);
    const auto answer =
        question.Judge(response, posix::OcspQuestion::Nonce::compare, FileTimeFromUnix(1'488'672'000), sources);
    if (!answer) return "none";
    if (answer->status == posix::RevocationStatus::unknown) return "unknown";
    return answer->status == posix::RevocationStatus::good ? "good" : "revoked";
}

TEST(ChainCorpus, OcspAnswersOfAnotherProjectGetTheirVerdict) {
    const auto folder = Corpus("chains/ocsp_unittest");
    if (!fs::exists(folder)) GTEST_SKIP() << "the corpus of OCSP answers is not here";
    const Expected all = ReadExpected("ocsp.tsv");
    EXPECT_EQ(all.size(), 36U);
    for (const auto& [name, verdict] : all)
        EXPECT_EQ(VerdictOnOcsp(folder / (name + ".pem")), verdict) << name;
}

// Malformed certificates and CRLs, all in one heap: nothing in it may become valid, and none of it may do harm.
TEST(ChainCorpus, NothingMalformedIsEverValid) {
    const fs::path seeds = Corpus("fuzz");
    if (!fs::exists(seeds / "x509")) GTEST_SKIP() << "the malformed certificates are not here";
    const Certificate root = Issue(AuthoritySpec("Root", 0));
    const ChainWorld world(root, {});
    std::vector<CertificateContext> leaves;
    for (const auto& entry : fs::directory_iterator(seeds / "x509")) {
        if (const auto certificate = CertCreateCertificateContext(AsBytes(ReadFile(entry.path())))) {
            leaves.push_back(certificate);
            CertAddCertificateContextToStore(world.others, certificate, CERT_STORE_ADD_ALWAYS);
        }
    }
    for (const auto& entry : fs::directory_iterator(seeds / "crl")) {
        if (const auto crl = CertCreateCRLContext(AsBytes(ReadFile(entry.path()))))
            CertAddCRLContextToStore(world.crls, crl);
    }
    EXPECT_GT(leaves.size(), 20U);
    EXPECT_GT(CertEnumCRLsInStore(world.crls).size(), 3U);
    for (const CertificateContext& leaf : leaves)
        EXPECT_NE(world.VerdictWithCrls(leaf), 0U);
    EXPECT_EQ(world.VerdictWithCrls(Issue(PersonSpec("Person", 2), root)), CRYPT_E_NO_REVOCATION_CHECK);
}

}  // namespace

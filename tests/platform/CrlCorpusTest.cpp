// CRLs made by another project; the file's name begins with what they say of the leaf.

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <filesystem>
#include <iostream>

#include "platform/Chains.h"
#include "tests/support/Corpora.h"
#include "tests/support/PemFile.h"

namespace {

using namespace platform;
namespace fs = std::filesystem;

const fs::path kCorpus = tests::Corpus("chains/crl_unittest");
constexpr std::int64_t kMoment = 1'489'017'600;

enum class Verdict { good, revoked, unknown };

// What Norvik answers to the file's leaf under its CRL; the last authority in the file is trusted.
Verdict VerdictOn(const fs::path& file) {
    const CertStore roots = CertOpenMemoryStore(), others = CertOpenMemoryStore(), crls = CertOpenMemoryStore();
    CertificateContext leaf, lastAuthority;
    for (const tests::PemBlock& block : tests::ReadPemFile(file)) {
        if (block.label == "CRL") {
            if (const CrlContext crl = CertCreateCRLContext(block.der)) CertAddCRLContextToStore(crls, crl);
            continue;
        }
        const CertificateContext certificate = CertCreateCertificateContext(block.der);
        if (block.label == "CERTIFICATE") {
            leaf = certificate;
        } else {
            lastAuthority = certificate;
            CertAddCertificateContextToStore(others, certificate, CERT_STORE_ADD_ALWAYS);
        }
    }
    CertAddCertificateContextToStore(roots, lastAuthority, CERT_STORE_ADD_ALWAYS);
    const ChainEngine engine{.roots = {roots}, .intermediates = {others}, .crls = {crls}, .distrusted = {}};
    const auto chain = CertGetCertificateChain(leaf, {.time = FileTimeFromUnix(kMoment),
                                                      .additionalStore = {},
                                                      .flags = CERT_CHAIN_REVOCATION_CHECK_CHAIN,
                                                      .engine = &engine,
                                                      .requestedUsage = {},
                                                      .network = {.allowed = false}});
    if (!chain) {
        ADD_FAILURE() << file << " has no chain";
        return Verdict::unknown;
    }
    const std::uint32_t status = chain->elements.front().dwErrorStatus;
    if (status & CERT_TRUST_IS_REVOKED) return Verdict::revoked;
    return status & CERT_TRUST_REVOCATION_STATUS_UNKNOWN ? Verdict::unknown : Verdict::good;
}

Verdict ExpectedBy(const std::string& name) {
    if (name.starts_with("good_") || name == "good") return Verdict::good;
    return name.starts_with("revoked") ? Verdict::revoked : Verdict::unknown;
}

struct Difference {
    std::string_view name;
    Verdict ours;
    std::string_view reason;
};
constexpr std::array<Difference, 4> kDifferences = {{
    {"bad_idp_indirectcrl", Verdict::good,
     "an indirect CRL of the issuer itself tells of its certificates like any other"},
    {"bad_thisupdate_too_old", Verdict::good, "the authority's own nextUpdate tells how long a CRL is current"},
    {"invalid_revoked_empty_sequence", Verdict::good, "authorities do write an empty list, and it says nothing else"},
    {"invalid_v1_explicit", Verdict::good, "the default written out breaks DER and changes no meaning"},
}};

TEST(CrlCorpus, CrlsOfAnotherVerifierGetItsVerdictOrAKnownOther) {
    if (!fs::exists(kCorpus)) GTEST_SKIP() << "the corpus of CRLs is not here";
    std::size_t agreed = 0, differed = 0, files = 0;
    for (const auto& entry : fs::directory_iterator(kCorpus)) {
        if (entry.path().extension() != ".pem") continue;
        ++files;
        const std::string name = entry.path().stem();
        const Verdict ours = VerdictOn(entry.path());
        const auto difference = std::ranges::find(kDifferences, name, &Difference::name);
        if (difference != kDifferences.end()) {
            EXPECT_EQ(ours, difference->ours) << name << ": " << difference->reason;
            EXPECT_NE(ours, ExpectedBy(name)) << name << " is listed as a difference and is none";
            ++differed;
        } else {
            EXPECT_EQ(ours, ExpectedBy(name)) << name;
            agreed += ours == ExpectedBy(name);
        }
    }
    std::cout << "CRLs: " << agreed << " verdicts agree, " << differed << " differ for a reason, of " << files << "\n";
    EXPECT_GE(files, 60U);
}

}  // namespace

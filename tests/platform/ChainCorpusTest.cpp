// Chains made by another project, with the faults that its own verifier finds in them.

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <filesystem>
#include <fstream>
#include <iomanip>
#include <iostream>
#include <optional>
#include <sstream>

#include "platform/Chains.h"
#include "tests/support/ChainWorld.h"
#include "tests/support/Corpora.h"
#include "tests/support/PemFile.h"

namespace {

using namespace platform;
namespace fs = std::filesystem;

const fs::path kCorpus = tests::Corpus("chains/verify_certificate_chain_unittest");

struct Case {
    std::string name;
    fs::path chain;
    std::string trust, time, purpose;
    std::vector<std::string> errors;
};

Case ReadCase(const fs::path& file) {
    Case result{.name = file.parent_path().filename() / file.stem(),
                .chain = {},
                .trust = {},
                .time = {},
                .purpose = {},
                .errors = {}};
    std::ifstream stream(file);
    for (std::string line; std::getline(stream, line);) {
        const auto value = [&](std::string_view key) -> std::optional<std::string> {
            if (!line.starts_with(key)) return std::nullopt;
            return line.substr(key.size());
        };
        if (const auto chain = value("chain: ")) result.chain = file.parent_path() / *chain;
        if (const auto trust = value("last_cert_trust: ")) result.trust = *trust;
        if (const auto time = value("utc_time: ")) result.time = *time;
        if (const auto purpose = value("key_purpose: ")) result.purpose = *purpose;
        if (const auto error = value("ERROR: ")) result.errors.push_back(*error);
    }
    return result;
}

std::vector<Case> ReadCases() {
    std::vector<Case> cases;
    for (const auto& entry : fs::recursive_directory_iterator(kCorpus)) {
        if (entry.path().extension() == ".test") cases.push_back(ReadCase(entry.path()));
    }
    std::ranges::sort(cases, {}, &Case::name);
    return cases;
}

struct ErrorMeaning {
    std::string_view begin;
    std::uint32_t bits;
};
constexpr std::array<ErrorMeaning, 15> kMeanings = {{
    {"Time is ", CERT_TRUST_IS_NOT_TIME_VALID},
    {"VerifySignedData failed", CERT_TRUST_IS_NOT_SIGNATURE_VALID},
    {"Couldn't parse SubjectPublicKeyInfo", CERT_TRUST_IS_NOT_SIGNATURE_VALID},
    {"Unacceptable public key", CERT_TRUST_IS_NOT_SIGNATURE_VALID},
    {"Unacceptable signature algorithm", CERT_TRUST_IS_NOT_SIGNATURE_VALID},
    {"Basic Constraints indicates not a CA", CERT_TRUST_INVALID_BASIC_CONSTRAINTS},
    {"Does not have Basic Constraints", CERT_TRUST_INVALID_BASIC_CONSTRAINTS},
    {"max_path_length reached", CERT_TRUST_INVALID_PATH_LENGTH},
    {"Too many name constraints checks", CERT_TRUST_INVALID_NAME_CONSTRAINTS},
    {"No valid policy", CERT_TRUST_INVALID_POLICY_CONSTRAINTS},
    {"Unconsumed critical extension", CERT_TRUST_HAS_NOT_SUPPORTED_CRITICAL_EXT},
    {"keyCertSign bit is not set", CERT_TRUST_IS_NOT_VALID_FOR_USAGE},
    {"The extended key usage ", CERT_TRUST_IS_NOT_VALID_FOR_USAGE},
    {"Certificate is not a trust anchor", CERT_TRUST_IS_UNTRUSTED_ROOT},
    {"Distrusted by trust store", CERT_TRUST_IS_EXPLICIT_DISTRUST},
}};

// The code for what the other verifier found; nothing if it found what has no counterpart here.
std::optional<ErrorCode> ExpectedCode(const Case& test) {
    ChainContext expected;
    expected.elements.emplace_back();
    for (const std::string& error : test.errors) {
        const auto* meaning =
            std::ranges::find_if(kMeanings, [&](const ErrorMeaning& row) { return error.starts_with(row.begin); });
        if (meaning == kMeanings.end()) return std::nullopt;
        expected.dwErrorStatus |= meaning->bits;
    }
    return CertVerifyCertificateChainPolicy(expected);
}

std::vector<std::string> UsageOf(const std::string& purpose) {
    if (purpose.starts_with("SERVER_AUTH")) return {"1.3.6.1.5.5.7.3.1"};
    if (purpose.starts_with("CLIENT_AUTH")) return {"1.3.6.1.5.5.7.3.2"};
    if (purpose == "C2PA_TIMESTAMPING") return {"1.3.6.1.5.5.7.3.8"};
    if (purpose == "C2PA_MANIFEST") return {"1.3.6.1.5.5.7.3.36"};
    return {};
}

FILETIME MomentOf(const std::string& text) {
    std::istringstream stream("20" + (text == "DEFAULT" ? std::string("211005120000Z") : text));
    std::tm parts{};
    stream >> std::get_time(&parts, "%Y%m%d%H%M%SZ");
    return FileTimeFromUnix(timegm(&parts));
}

ErrorCode OurCode(const Case& test) {
    std::vector<CertificateContext> certificates;
    for (const tests::PemBlock& block : tests::ReadPemFile(test.chain))
        certificates.push_back(CertCreateCertificateContext(block.der));
    if (certificates.empty() || std::ranges::any_of(certificates, [](const auto& each) { return !each; }))
        return CRYPT_E_BAD_ENCODE;

    const CertStore roots = CertOpenMemoryStore(), others = CertOpenMemoryStore(), distrusted = CertOpenMemoryStore();
    for (const CertificateContext& certificate : certificates)
        CertAddCertificateContextToStore(others, certificate, CERT_STORE_ADD_ALWAYS);
    const bool isLeaf = certificates.size() == 1;
    const bool trusted = test.trust == "DISTRUSTED" || test.trust.starts_with("TRUSTED_ANCHOR") ||
                         (test.trust.starts_with("TRUSTED_LEAF") && isLeaf);
    if (trusted) CertAddCertificateContextToStore(roots, certificates.back(), CERT_STORE_ADD_ALWAYS);
    if (test.trust == "DISTRUSTED")
        CertAddCertificateContextToStore(distrusted, certificates.back(), CERT_STORE_ADD_ALWAYS);

    const ChainEngine engine{.roots = {roots}, .intermediates = {others}, .crls = {}, .distrusted = distrusted};
    const auto chain = CertGetCertificateChain(certificates.front(), {.time = MomentOf(test.time),
                                                                      .additionalStore = {},
                                                                      .flags = 0,
                                                                      .engine = &engine,
                                                                      .requestedUsage = UsageOf(test.purpose),
                                                                      .network = {.allowed = false}});
    return chain ? CertVerifyCertificateChainPolicy(*chain) : GetLastError();
}

// Where Norvik answers otherwise, and why.
struct Differences {
    std::string_view reason;
    ErrorCode ours;
    std::vector<std::string_view> names;
};
const std::vector<Differences>& KnownDifferences() {
    static const std::vector<Differences> differences = {
        {"a root is held to its own validity, also where the other verifier is told not to look",
         CERT_E_EXPIRED,
         {"expired-root/not-after", "expired-root/not-after-ta-with-constraints", "expired-root/not-before"}},
        {"a root is held to its own constraints, also where the other verifier is told not to look",
         TRUST_E_BASIC_CONSTRAINTS,
         {"root-basic-constraints-ca-false/main"}},
        {"the same, path length", CERT_E_PATHLENCONST, {"violates-pathlen-1-from-root/main"}},
        {"the same, usages",
         CERT_E_WRONG_USAGE,
         {"root-eku-clientauth/serverauth", "root-eku-clientauth/serverauth-strict",
          "root-eku-clientauth/serverauth-ta-with-expiration", "root-lacks-keycertsign-key-usage/main"}},
        {"the same, policy constraints",
         CERT_E_INVALID_POLICY,
         {"policies-inhibit-anypolicy-by-root-fail/main", "policies-inhibit-mapping-by-root-fail/main",
          "policies-required-by-root-fail/main"}},
        {"the policies that a root lists or maps are not part of the path (RFC 5280, 6.1.1 d), and a trusted root may "
         "be "
         "silent on being an authority",
         ERROR_SUCCESS,
         {"policies-on-root-wrong/ta-with-constraints", "policy-mappings-on-root-fail/ta-with-constraints",
          "root-lacks-basic-constraints/ta-with-constraints-require-basic-constraints"}},
        {"whoever is put among the roots is trusted, also a certificate that is not self-signed",
         ERROR_SUCCESS,
         {"target-only/trusted_anchor", "target-only/trusted_leaf_require_self_signed",
          "target-selfissued/trusted_anchor", "target-selfissued/trusted_leaf_require_self_signed"}},
        {"the key identifier tells that another key signed: the issuer is missing, not the signature broken",
         CERT_E_CHAINING,
         {"incorrect-trust-anchor/main", "intermediate-and-target-wrong-signature/main",
          "target-wrong-signature/main"}},
        {"SHA-1 is accepted: documents of its time must stay verifiable",
         ERROR_SUCCESS,
         {"intermediate-signed-with-sha1/main", "target-signed-with-sha1/main"}},
        {"any usage is every usage; no usages are no restriction; further usages and CA bits in a leaf do no harm: the "
         "strict rules are those of servers and browsers",
         ERROR_SUCCESS,
         {"intermediate-eku-any-and-clientauth/serverauth-strict", "target-eku-any/clientauth-strict",
          "target-eku-any/clientauth-strict-leaf", "target-eku-any/mlsclientauth", "target-eku-any/serverauth-strict",
          "target-eku-any/serverauth-strict-leaf", "target-eku-clientauth/clientauth-strict",
          "target-eku-many/clientauth-strict", "target-eku-many/clientauth-strict-leaf",
          "target-eku-many/mlsclientauth", "target-eku-many/serverauth-strict",
          "target-eku-many/serverauth-strict-leaf", "target-eku-none/clientauth-strict",
          "target-eku-none/clientauth-strict-leaf", "target-eku-none/mlsclientauth",
          "target-eku-none/serverauth-strict", "target-has-ca-basic-constraints/strict", "target-not-end-entity/strict",
          "target-not-end-entity/strict-leaf"}},
        {"a usage that is asked for must be allowed by the authorities too, without exception",
         CERT_E_WRONG_USAGE,
         {"intermediate-eku-c2pamanifest/c2pamanifest", "intermediate-eku-c2patimestamping/c2patimestamp"}},
        {"critical extensions of one application, which only it understands",
         CERT_E_CRITICAL,
         {"intermediate-eku-mlsclientauth-extra/mlsclientauth", "intermediate-eku-mlsclientauth/mlsclientauth",
          "target-msapplicationpolicies-and-eku/main"}},
        {"the bound on name comparisons counts all kinds of names together",
         CERT_E_INVALID_NAME,
         {"many-names/ok-all-types"}},
    };
    return differences;
}

std::optional<ErrorCode> KnownDifference(const std::string& name) {
    for (const Differences& group : KnownDifferences()) {
        if (std::ranges::find(group.names, name) != group.names.end()) return group.ours;
    }
    return std::nullopt;
}

TEST(ChainCorpus, ChainsOfAnotherVerifierGetItsVerdictOrAKnownOther) {
    if (!fs::exists(kCorpus)) GTEST_SKIP() << "the corpus of chains is not here";
    std::size_t agreed = 0, differed = 0;
    const std::vector<Case> cases = ReadCases();
    for (const Case& test : cases) {
        const auto expected = ExpectedCode(test);
        const ErrorCode ours = OurCode(test);
        if (const auto difference = KnownDifference(test.name)) {
            EXPECT_EQ(ours, *difference) << test.name;
            EXPECT_NE(ours, expected) << test.name << " is listed as a difference and is none";
            ++differed;
        } else {
            EXPECT_EQ(ours, expected) << test.name;
            agreed += ours == expected;
        }
    }
    std::cout << "chains: " << agreed << " verdicts agree, " << differed << " differ for a reason, of " << cases.size()
              << "\n";
    EXPECT_GE(cases.size(), 150U);
}

// Malformed certificates and CRLs, all in one heap: nothing in it may become valid, and none of it may do harm.
TEST(ChainCorpus, NothingMalformedIsEverValid) {
    const fs::path seeds = kCorpus / "../../fuzz";
    if (!fs::exists(seeds / "x509")) GTEST_SKIP() << "the malformed certificates are not here";
    const tests::Certificate root = tests::Issue(tests::AuthoritySpec("Root", 0));
    const tests::ChainWorld world(root, {});
    std::vector<CertificateContext> leaves;
    for (const auto& entry : fs::directory_iterator(seeds / "x509")) {
        const std::string bytes = tests::ReadFile(entry.path());
        if (const CertificateContext certificate = CertCreateCertificateContext(AsBytes(bytes))) {
            leaves.push_back(certificate);
            CertAddCertificateContextToStore(world.others, certificate, CERT_STORE_ADD_ALWAYS);
        }
    }
    std::size_t crls = 0;
    for (const auto& entry : fs::directory_iterator(seeds / "crl")) {
        const std::string bytes = tests::ReadFile(entry.path());
        if (const CrlContext crl = CertCreateCRLContext(AsBytes(bytes))) {
            CertAddCRLContextToStore(world.crls, crl);
            ++crls;
        }
    }
    EXPECT_GT(leaves.size(), 20U);
    EXPECT_GT(crls, 3U);
    for (const CertificateContext& leaf : leaves)
        EXPECT_NE(world.VerdictWithCrls(leaf), 0U);
    const tests::Certificate leaf = tests::Issue(tests::PersonSpec("Person", 2), root);
    EXPECT_EQ(world.VerdictWithCrls(leaf), CRYPT_E_NO_REVOCATION_CHECK);
    std::cout << "malformed: " << leaves.size() << " certificates and " << crls << " CRLs were read\n";
}

}  // namespace

// Answers of OCSP responders made by another project, judged as at their time.

#include <gtest/gtest.h>

#include <array>
#include <filesystem>
#include <iostream>

#include "platform/posix/Ocsp.h"
#include "tests/support/Corpora.h"
#include "tests/support/PemFile.h"

namespace {

using namespace platform;
using posix::RevocationStatus;
namespace fs = std::filesystem;

const fs::path kCorpus = tests::Corpus("chains/ocsp_unittest");
constexpr std::int64_t kMoment = 1'488'672'000;

enum class Verdict { good, revoked, unknown, none };

Verdict VerdictOn(const fs::path& file) {
    CertificateContext certificate, issuer;
    Bytes response;
    for (const tests::PemBlock& block : tests::ReadPemFile(file)) {
        if (block.label == "CERTIFICATE") certificate = CertCreateCertificateContext(block.der);
        if (block.label == "CA CERTIFICATE") issuer = CertCreateCertificateContext(block.der);
        if (block.label == "OCSP RESPONSE") response = block.der;
    }
    const std::array<CertificateContext, 2> path = {certificate, issuer};
    const posix::OcspQuestion question(path);
    if (response.empty()) ADD_FAILURE() << file << " has no answer";
    if (!question) return Verdict::none;  // a certificate that does not decode
    const ChainEngine none;
    ChainParameters parameters;
    parameters.engine = &none;
    posix::ChainSources sources(certificate, parameters);
    const auto answer =
        question.Judge(response, posix::OcspQuestion::Nonce::compare, FileTimeFromUnix(kMoment), sources);
    if (!answer) return Verdict::none;
    if (answer->status == RevocationStatus::unknown) return Verdict::unknown;
    return answer->status == RevocationStatus::good ? Verdict::good : Verdict::revoked;
}

struct Expected {
    std::string_view name;
    Verdict verdict;
};
constexpr std::array<Expected, 36> kExpected = {{
    {"bad_ocsp_type", Verdict::none},
    {"bad_signature", Verdict::none},
    {"bad_status", Verdict::none},
    {"future_response", Verdict::none},
    {"good_response", Verdict::good},
    {"good_response_invalid_serial", Verdict::none},
    {"good_response_next_update", Verdict::good},
    {"good_response_sha256", Verdict::good},
    {"has_critical_ct_extension", Verdict::none},
    {"has_critical_response_extension", Verdict::none},
    {"has_critical_single_extension", Verdict::none},
    {"has_extension", Verdict::good},
    {"has_single_extension", Verdict::good},
    {"has_version", Verdict::good},
    {"invalid_response", Verdict::none},
    {"invalid_response_data", Verdict::none},
    {"malformed_request", Verdict::none},
    {"missing_response", Verdict::none},
    {"multiple_response", Verdict::unknown},
    {"multiple_response_good_revoked", Verdict::revoked},
    {"no_response", Verdict::none},
    {"ocsp_extra_certs", Verdict::good},
    {"ocsp_sign_bad_indirect", Verdict::none},
    {"ocsp_sign_direct", Verdict::good},
    {"ocsp_sign_indirect", Verdict::good},
    {"ocsp_sign_indirect_missing", Verdict::none},
    {"old_response", Verdict::none},
    {"other_response", Verdict::none},
    {"produced_early_response", Verdict::good},
    {"produced_late_response", Verdict::good},
    {"responder_id", Verdict::good},
    {"responder_name", Verdict::good},
    {"revoke_response", Verdict::revoked},
    {"revoke_response_reason", Verdict::revoked},
    {"stale_response", Verdict::none},
    {"unknown_response", Verdict::unknown},
}};

TEST(OcspCorpus, AnswersOfAnotherProjectGetTheirVerdict) {
    if (!fs::exists(kCorpus)) GTEST_SKIP() << "the corpus of OCSP answers is not here";
    std::size_t agreed = 0;
    for (const Expected& expected : kExpected) {
        const Verdict ours = VerdictOn(kCorpus / (std::string(expected.name) + ".pem"));
        EXPECT_EQ(static_cast<int>(ours), static_cast<int>(expected.verdict)) << expected.name;
        agreed += ours == expected.verdict;
    }
    std::cout << "OCSP answers: " << agreed << " verdicts as expected, of " << kExpected.size() << "\n";
}

}  // namespace

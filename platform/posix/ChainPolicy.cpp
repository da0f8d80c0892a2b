#include <array>

#include "platform/posix/PathJudge.h"

namespace platform {
namespace {

struct PolicyRow {
    std::uint32_t bits;
    ErrorCode code;
};
// In the order in which they are told: what speaks against the certificate itself stands before what merely could not
// be settled.
constexpr std::array<PolicyRow, 14> kBasePolicy = {{
    {CERT_TRUST_IS_NOT_SIGNATURE_VALID, TRUST_E_CERT_SIGNATURE},
    {CERT_TRUST_IS_EXPLICIT_DISTRUST, CERT_E_EXPLICIT_DISTRUST},
    {CERT_TRUST_IS_UNTRUSTED_ROOT, CERT_E_UNTRUSTEDROOT},
    {CERT_TRUST_IS_PARTIAL_CHAIN | CERT_TRUST_IS_CYCLIC, CERT_E_CHAINING},
    {CERT_TRUST_IS_REVOKED, CRYPT_E_REVOKED},
    {CERT_TRUST_INVALID_BASIC_CONSTRAINTS, TRUST_E_BASIC_CONSTRAINTS},
    {CERT_TRUST_INVALID_PATH_LENGTH, CERT_E_PATHLENCONST},
    {CERT_TRUST_INVALID_NAME_CONSTRAINTS, CERT_E_INVALID_NAME},
    {CERT_TRUST_INVALID_POLICY_CONSTRAINTS, CERT_E_INVALID_POLICY},
    // An extension that does not decode is one that cannot be understood.
    {CERT_TRUST_HAS_NOT_SUPPORTED_CRITICAL_EXT | CERT_TRUST_INVALID_EXTENSION, CERT_E_CRITICAL},
    {CERT_TRUST_IS_NOT_VALID_FOR_USAGE, CERT_E_WRONG_USAGE},
    {CERT_TRUST_IS_NOT_TIME_VALID, CERT_E_EXPIRED},
    {CERT_TRUST_IS_OFFLINE_REVOCATION, CRYPT_E_REVOCATION_OFFLINE},
    {CERT_TRUST_REVOCATION_STATUS_UNKNOWN, CRYPT_E_NO_REVOCATION_CHECK},
}};
static_assert(kBasePolicy.size() < posix::kNoFault);

}  // namespace

std::size_t posix::SeverityOf(std::uint32_t status) {
    for (std::size_t row = 0; row < kBasePolicy.size(); ++row) {
        if (status & kBasePolicy[row].bits) return row;
    }
    return kNoFault;
}

ErrorCode CertVerifyCertificateChainPolicy(const ChainContext& chain) {
    if (chain.elements.empty()) return CERT_E_CHAINING;
    const std::size_t row = posix::SeverityOf(chain.dwErrorStatus);
    return row == posix::kNoFault ? ERROR_SUCCESS : kBasePolicy[row].code;
}

}  // namespace platform

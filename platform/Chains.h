#pragma once
// Building and judging certificate chains (RFC 5280, 6), with revocation from CRLs and OCSP responders.

#include <chrono>
#include <optional>
#include <vector>

#include "platform/Certificates.h"
#include "platform/Stores.h"

namespace platform {

// Bits of an element and, joined, of a chain.
constexpr std::uint32_t CERT_TRUST_NO_ERROR = 0;
constexpr std::uint32_t CERT_TRUST_IS_NOT_TIME_VALID = 0x1;
constexpr std::uint32_t CERT_TRUST_IS_REVOKED = 0x4;
constexpr std::uint32_t CERT_TRUST_IS_NOT_SIGNATURE_VALID = 0x8;
constexpr std::uint32_t CERT_TRUST_IS_NOT_VALID_FOR_USAGE = 0x10;
constexpr std::uint32_t CERT_TRUST_IS_UNTRUSTED_ROOT = 0x20;
constexpr std::uint32_t CERT_TRUST_REVOCATION_STATUS_UNKNOWN = 0x40;
constexpr std::uint32_t CERT_TRUST_IS_CYCLIC = 0x80;
constexpr std::uint32_t CERT_TRUST_INVALID_EXTENSION = 0x100;
constexpr std::uint32_t CERT_TRUST_INVALID_POLICY_CONSTRAINTS = 0x200;
constexpr std::uint32_t CERT_TRUST_INVALID_BASIC_CONSTRAINTS = 0x400;
constexpr std::uint32_t CERT_TRUST_INVALID_NAME_CONSTRAINTS = 0x800;
constexpr std::uint32_t CERT_TRUST_INVALID_PATH_LENGTH = 0x00001000;  // ours: told apart from the CA bit
constexpr std::uint32_t CERT_TRUST_IS_PARTIAL_CHAIN = 0x10000;
constexpr std::uint32_t CERT_TRUST_IS_OFFLINE_REVOCATION = 0x01000000;
constexpr std::uint32_t CERT_TRUST_IS_EXPLICIT_DISTRUST = 0x04000000;
constexpr std::uint32_t CERT_TRUST_HAS_NOT_SUPPORTED_CRITICAL_EXT = 0x08000000;

struct CERT_CHAIN_ELEMENT {
    CertificateContext certificate;
    std::uint32_t dwErrorStatus = 0;
    bool selfSigned = false;
};
// The leaf first. A value; null is a chain without elements.
struct ChainContext {
    std::uint32_t dwErrorStatus = 0;
    std::vector<CERT_CHAIN_ELEMENT> elements;
};

constexpr std::uint32_t CERT_CHAIN_REVOCATION_CHECK_CHAIN = 0x20000000;

// Where a chain looks: null `engine` stands for the system's stores. Values of an engine replace them, so that a test
// or a caller with roots of its own needs no tricks.
struct ChainEngine {
    std::vector<CertStore> roots;          // trusted when they hold the certificate
    std::vector<CertStore> intermediates;  // searched for issuers
    std::vector<CertStore> crls;
    CertStore distrusted;
};
// What a chain may ask for over the network. The addresses come from certificates, so the sum is bounded, too.
struct ChainNetwork {
    bool allowed = true;  // and AllowNetwork (Http.h) as well
    std::chrono::seconds eachExchange{15};
    std::chrono::seconds allExchanges{60};
    unsigned mostExchanges = 16;
};
struct ChainParameters {
    std::optional<FILETIME> time;  // absent: now
    CertStore additionalStore;     // null: none
    std::uint32_t flags = 0;
    const ChainEngine* engine = nullptr;
    std::vector<std::string> requestedUsage;  // every one must be allowed by the chain; empty: none asked
    ChainNetwork network = {};
};
// Empty only for what cannot be judged at all (a null certificate: ERROR_INVALID_PARAMETER). Whether the host's trust
// anchors count is set by TrustSystemRoots. The answer does not depend on the order in which stores list their
// certificates.
std::optional<ChainContext> CertGetCertificateChain(const CertificateContext& certificate,
                                                    const ChainParameters& parameters);

// Process-wide: whether certificates of the system's ROOT stores count as trusted (true at the start).
void TrustSystemRoots(bool trust);

// The base policy: 0, or the first that applies of signature, distrust, root, incompleteness, revocation, basic
// constraints, path length, name constraints, policies, critical extension, usage, time, unknown revocation.
ErrorCode CertVerifyCertificateChainPolicy(const ChainContext& chain);

// The path to embed beside a signature: the certificate first, then its issuers up to and including the root where one
// is known. Issuers come from the certificate's own store and from MY, ADDRESSBOOK, CA, ROOT, CertificationAuthority,
// AuthRoot, TrustedPeople and TrustedPublisher; the host's trust anchors and tokens are opened only when no folder has
// an issuer. The signatures along the path are checked, nothing else is judged. Empty only for a null certificate
// (ERROR_INVALID_PARAMETER).
std::vector<CertificateContext> BuildIssuerPath(const CertificateContext& leaf);

// Revocation of one certificate, found out as a chain does, here and over the network (20 s at most, for who asks this
// goes on without an answer): 0, CRYPT_E_REVOKED, CRYPT_E_NO_REVOCATION_CHECK or CRYPT_E_REVOCATION_OFFLINE.
ErrorCode CertVerifyRevocation(const CertificateContext& certificate);

}  // namespace platform

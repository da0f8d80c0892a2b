#pragma once
// Finding the paths that lead from a certificate upwards (RFC 4158): all of them within bounds, none judged.

#include <vector>

#include "platform/posix/ChainSources.h"

namespace platform::posix {

struct CandidatePath {
    std::vector<CertificateContext> elements = {};  // the leaf first
    // For each element: the certificate above it (above a self-signed one: itself) bears the right name, but its key
    // does not verify the signature.
    std::vector<bool> signatureWrong = {};
    bool trusted = false;     // the last element is
    bool selfSigned = false;  // the last element is
    bool cyclic = false;      // went no further because the only issuers were already in it
    // Who issued a last element that is trusted without being self-signed: they sign the CRLs that list it.
    std::vector<CertificateContext> anchorIssuers = {};

    [[nodiscard]] bool IsComplete() const { return trusted || selfSigned; }
};

// A path ends with the first trusted certificate, with a self-signed one, or where no issuer is known. An issuer is who
// bears the name and verifies the signature. Only where nobody does, one who bears the name and is not contradicted by
// the authority key identifier stands in as the issuer with a wrong signature. Bounded against meshes made to keep a
// verifier busy: paths of 16 certificates, 1000 signature checks, 64 complete paths. Each certificate is first tried on
// its shortest way, and trusted ones go before others, so that the bounds cut what is least likely to matter. Never
// empty: if the bounds cut before any path ended, one that goes no further stands for all.
std::vector<CandidatePath> EnumeratePaths(const CertificateContext& leaf, ChainSources& sources);

// Whether the two name the same person or authority (RFC 5280, 7.1).
bool IsIssuerName(const CertificateContext& certificate, const CertificateContext& issuer);
// Subject and issuer are the same.
bool IsSelfIssued(const CertificateContext& certificate);

}  // namespace platform::posix

#pragma once
// What CRLs say about one certificate (RFC 5280, 6.3).

#include <array>
#include <span>
#include <vector>

#include "platform/posix/ChainSources.h"

namespace platform::posix {

enum class RevocationStatus { good, revoked, unknown };

// `path` begins with the certificate and goes on with its issuers, as far as they are known. A CRL counts when the
// issuer signed it, or another certificate of the issuer's name that the path vouches for (a changed key, a key that
// only signs CRLs), with the right to do so; an indirect one, when whom the certificate names in the issuer's place
// did. Any signer but the issuer itself must be known as not revoked. Of the CRLs that are current at the moment the
// newest rules; one without nextUpdate is current for a week. Those for some reasons alone clear a certificate only if
// they tell of all of them together. Revocation lasts: an outdated CRL cannot clear a certificate, but if no current
// one tells, an entry other than a hold still revokes. Deltas revoke, and end a hold of the CRL that they continue;
// alone they never clear. CRLs with critical parts that nobody here knows do not count at all.
RevocationStatus CheckCrls(std::span<const CertificateContext> path, FILETIME at, ChainSources& sources);

// What a CRL of the certificate's issuer is worth, whatever it covers.
struct Credibility {
    bool credible = false;  // signed by who is believed as its signer, and current
    // Not credible yet: these and their issuers, whose revocation nobody tells, would be believed as its signers.
    std::vector<std::array<CertificateContext, 2>> openSigners = {};
};
Credibility CredibilityOf(const CrlContext& crl, std::span<const CertificateContext> path, FILETIME at,
                          ChainSources& sources);

}  // namespace platform::posix

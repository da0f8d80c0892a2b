#pragma once
// What CRLs say about one certificate (RFC 5280, 6.3).

#include <span>

#include "platform/posix/ChainSources.h"

namespace platform::posix {

enum class RevocationStatus { good, revoked, unknown };

// `path` begins with the certificate and goes on with its issuers, as far as they are known. A CRL counts when the
// issuer signed it, or another certificate of the issuer's name that the path vouches for (a changed key, a key that
// only signs CRLs), with the right to do so. Of the CRLs that are current at the moment the newest rules; one without
// nextUpdate is current for a week. Revocation lasts: an outdated CRL cannot clear a certificate, but if no current one
// tells, an entry other than a hold still revokes. CRLs that cover less than the whole (deltas, partitions by reason)
// can revoke and never clear; indirect ones, and those with critical parts nobody here knows, do not count at all.
RevocationStatus CheckCrls(std::span<const CertificateContext> path, FILETIME at, ChainSources& sources);

// Whether this CRL is of the certificate's issuer, signed by who is believed as its signer and current: so that it
// answers, whatever it covers.
bool IsCredible(const CrlContext& crl, std::span<const CertificateContext> path, FILETIME at, ChainSources& sources);

}  // namespace platform::posix

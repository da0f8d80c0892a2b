#pragma once
// Where a certificate or a CRL says that more can be learnt of it, over HTTP.

#include <string>
#include <vector>

#include "platform/Stores.h"

namespace platform::posix {

// Only addresses of http and https, in the certificate's order, each once and no more than a few: a long list is no
// help but a burden.
std::vector<std::string> CrlAddresses(const CertificateContext& certificate);     // RFC 5280, 4.2.1.13
std::vector<std::string> OcspAddresses(const CertificateContext& certificate);    // RFC 5280, 4.2.2.1
std::vector<std::string> IssuerAddresses(const CertificateContext& certificate);  // the same, caIssuers
// Of the delta CRLs that continue this CRL, as the certificate and the CRL have them (RFC 5280, 4.2.1.15 and 5.2.6).
std::vector<std::string> DeltaAddresses(const CertificateContext& certificate, const CrlContext& base);

}  // namespace platform::posix

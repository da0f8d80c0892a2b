#pragma once
// What signed attributes must say of the message that they stand in.

#include <string>

#include "platform/Certificates.h"
#include "platform/cms/SignerInfo.h"

namespace platform::cms {

// A fault as a sentence for the log; empty if all is well.
using Fault = std::string;

// RFC 5652 11.1 to 11.3: contentType is there once and names the message's type; messageDigest is there once; at most
// one signingTime that is a time; signing certificate references at most once each; RFC 6211: what
// cmsAlgorithmProtection says are the signer's algorithms.
Fault CheckSignedAttributes(const SignerInfo& signer, const std::string& contentType);

// RFC 5652 11.1 to 11.3: contentType, messageDigest and signingTime mean nothing outside the signature.
Fault CheckUnsignedAttributes(const SignerInfo& signer);

// The digest in messageDigest; empty if CheckSignedAttributes would find fault with it.
Bytes MessageDigestOf(const SignerInfo& signer);

// RFC 5035 3, 4: the first reference in signingCertificate and signingCertificateV2, where present, is to this
// certificate: its hash, and issuer and serial number if they are given.
Fault CheckSigningCertificate(const SignerInfo& signer, const CertificateContext& certificate);

// The text of the signingTime as it stands; empty if absent or malformed.
std::string SigningTimeOf(const SignerInfo& signer);

}  // namespace platform::cms

#pragma once
// Which certificate's key verifies which certificate's signature, remembered for the life of the process.

#include "platform/Certificates.h"
#include "platform/posix/OpenSsl.h"

namespace platform::posix {

// Whether the issuer's key verifies the certificate's signature, and nothing else: no names, times or rights. What was
// found is kept in a bounded table keyed by SHA-256 of both encodings. It is a fact about bytes that no store, clock or
// policy can change, so it never has to be forgotten.
bool IsSignedBy(const CertificateContext& certificate, const CertificateContext& issuer);

// Whether an RSA key has the exponent 1 or an even one: under the first every padded digest is its own signature, which
// anybody can write down, and the second is no RSA.
bool HasUselessExponent(const EVP_PKEY* key);
// Whether a signature made by this key proves nothing any more: an RSA or DSA key, or one on an elliptic curve, that
// can be broken at home. Keys sold as 1024 bits may come out some bits shorter, so the line is drawn at 1000; on a
// curve it is drawn at 160.
bool HasBreakableKey(const CertificateContext& certificate);
// Whether the certificate's signature uses a digest with practical chosen-prefix collisions against certificates (MD5
// and older). SHA-1 is accepted: documents of its time must stay verifiable.
bool HasBreakableDigest(const CertificateContext& certificate);
// The same of the algorithm that a CRL or an OCSP answer names.
bool IsBreakableDigest(const X509_ALGOR* signatureAlgorithm);

}  // namespace platform::posix

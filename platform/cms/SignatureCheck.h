#pragma once
// The value of one signer's signature (RFC 5652 5.4 to 5.6) and the form that a signer must have so that the value
// proves something about the content.

#include <array>

#include "platform/Keys.h"
#include "platform/cms/AttributeChecks.h"
#include "platform/cms/ContentDigests.h"
#include "platform/cms/SignerInfo.h"

namespace platform::cms {

// Why this signer cannot pass, before the value itself is looked at; empty if all is well. Signed attributes need
// contentType (the content's type) and messageDigest, once each. A signature without signed attributes is for content
// of type data only, and not for content that itself decodes as signed attributes: such a signature can have been made
// over attributes.
Fault CheckForm(const SignerInfo& signer, const std::string& contentType, const ContentDigests& digests);

// Tries the value with keys. The signer and the digests must outlive this object.
class SignatureCheck {
  public:
    SignatureCheck(const SignerInfo& signer, HashAlgorithm algorithm, const ContentDigests& content);
    // Whether the value verifies over the signed attributes as they stand or in DER order (other makers sign either);
    // without signed attributes over the content. A DSA key without parameters of its own does not verify: those of an
    // issuer whom nobody has proved could be chosen so that a forged signature fits.
    bool Verifies(const CertificateContext& certificate, const SignatureScheme& scheme);

  private:
    static constexpr std::size_t kForms = 2;
    const Bytes& Form(std::size_t index);
    const SignerInfo& signer_;
    HashAlgorithm algorithm_;
    std::array<Bytes, kForms> forms_;
};

}  // namespace platform::cms

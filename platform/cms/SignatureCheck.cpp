#include "platform/cms/SignatureCheck.h"

#include "platform/formats/DerWriter.h"

namespace platform::cms {
namespace {

Bytes DigestUnderSetTag(HashAlgorithm algorithm, ByteView contents) {
    Hash hash(algorithm);
    if (!hash) return {};
    hash.Update(DerHeader(tag::kSet, contents.size()));
    hash.Update(contents);
    return hash.Finish();
}

// The signed attributes in DER: each of them re-encoded and all of them in the order of a SET OF.
Bytes SortedAttributes(const Attributes& attributes) {
    std::vector<Bytes> elements;
    for (const auto& attribute : attributes) {
        auto der = ToDer(attribute.encoded);
        if (!der) return {};
        elements.push_back(std::move(*der));
    }
    DerWriter out;
    out.SetOf(std::move(elements));
    return out.Take();
}

}  // namespace

Fault CheckForm(const SignerInfo& signer, const std::string& contentType, const ContentDigests& digests) {
    if (signer.signature.empty()) return "Unable to get the signer's signature bytes.";
    Fault misplaced = CheckUnsignedAttributes(signer);
    if (!misplaced.empty()) return misplaced;
    if (signer.signedAttributesContents) return CheckSignedAttributes(signer, contentType);
    if (contentType != oid::kData) return "A signature over content of this type needs signed attributes.";
    if (digests.LooksLikeSignedAttributes()) {
        return "The content is itself a set of signed attributes: the signature may have been made for another "
               "message.";
    }
    return {};
}

SignatureCheck::SignatureCheck(const SignerInfo& signer, HashAlgorithm algorithm, const ContentDigests& content)
    : signer_(signer), algorithm_(algorithm) {
    forms_[0] = signer.signedAttributesContents ? DigestUnderSetTag(algorithm, *signer.signedAttributesContents)
                                                : content.Of(algorithm);
}

// The second form is made only when the first did not fit.
const Bytes& SignatureCheck::Form(std::size_t index) {
    if (index == 1 && forms_[1].empty() && signer_.signedAttributesContents) {
        const Bytes sorted = SortedAttributes(signer_.signedAttributes);
        if (!sorted.empty()) forms_[1] = Digest(algorithm_, sorted);
        if (forms_[1] == forms_[0]) forms_[1].clear();
    }
    return forms_[index];
}

bool SignatureCheck::Verifies(const CertificateContext& certificate, const SignatureScheme& scheme) {
    for (std::size_t form = 0; form < kForms; ++form) {
        const Bytes& digest = Form(form);
        if (!digest.empty() && CryptVerifySignature(certificate, scheme, digest, signer_.signature)) return true;
    }
    return false;
}

}  // namespace platform::cms

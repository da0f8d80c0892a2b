#include "toolkit/cms/SignerVerifier.h"

#include <algorithm>
#include <array>

#include "platform/Keys.h"
#include "toolkit/cms/Algorithms.h"
#include "toolkit/cms/AttributeChecks.h"
#include "toolkit/cms/Names.h"
#include "units/DerWriter.h"

namespace toolkit::cms {

namespace {

using platform::Bytes;
using platform::ByteView;
using platform::CertificateContext;
using platform::HashAlgorithm;
namespace tag = units::tag;

std::string UpperCase(std::string_view text) {
    std::string upper(text);
    for (char& c : upper) {
        if (c >= 'a' && c <= 'z') c = static_cast<char>(c - 'a' + 'A');
        if (c == '_') c = '-';
    }
    return upper;
}

// Same serial number, and the same issuer common name or, if that is empty, the same whole name: for messages whose
// writer encoded the issuer anew with other string types.
bool HasIssuerText(const CertificateContext& certificate, const SignerInfo& signer) {
    const Bytes& issuer = certificate.Info().Issuer;
    const std::string commonName = CommonNameOf(signer.issuer);
    if (!commonName.empty()) return CommonNameOf(issuer) == commonName;
    return DistinguishedNameOf(issuer) == DistinguishedNameOf(signer.issuer);
}

// Nobody honest has more than two or three; thousands in a hostile message would each cost a check by each signer.
constexpr std::size_t kMostCandidates = 8;

void AddCandidate(CertificatePool& candidates, const CertificateContext& certificate) {
    if (candidates.size() >= kMostCandidates) return;
    if (std::find(candidates.begin(), candidates.end(), certificate) == candidates.end()) {
        candidates.push_back(certificate);
    }
}

// All certificates that the signer's identifier fits: more than one where somebody put two with the same issuer and
// serial number into the message. Only the one whose key made the signature is the signer's.
CertificatePool Candidates(const SignerInfo& signer, const CertificatePool& pool) {
    CertificatePool exact, alike;
    for (const auto& certificate : pool) {
        if (signer.subjectKeyIdentifier) {
            if (SubjectKeyIdentifierOf(certificate) == *signer.subjectKeyIdentifier) AddCandidate(exact, certificate);
        } else if (std::ranges::equal(SerialOf(certificate), units::Magnitude(signer.serial))) {
            if (std::ranges::equal(certificate.Info().Issuer, signer.issuer)) {
                AddCandidate(exact, certificate);
            } else if (HasIssuerText(certificate, signer)) {
                AddCandidate(alike, certificate);
            }
        }
    }
    return exact.empty() ? alike : exact;
}

Bytes DigestUnderSetTag(HashAlgorithm algorithm, ByteView contents) {
    platform::Hash hash(algorithm);
    if (!hash) return {};
    hash.Update(units::DerHeader(tag::kSet, contents.size()));
    hash.Update(contents);
    return hash.Finish();
}

// The signed attributes in DER: each of them re-encoded and all of them in the order of a SET OF.
Bytes SortedAttributes(const Attributes& attributes) {
    std::vector<Bytes> elements;
    for (const auto& attribute : attributes) {
        auto der = units::ToDer(attribute.encoded);
        if (!der) return {};
        elements.push_back(std::move(*der));
    }
    units::DerWriter out;
    out.SetOf(std::move(elements));
    return out.Take();
}

// The digests that the signature may be over: of the attributes as they stand, or of the same in DER order; without
// signed attributes of the content. The second form is made only when the first did not fit.
class SignedDigests {
  public:
    SignedDigests(const SignerInfo& signer, HashAlgorithm algorithm, const ContentDigests& content)
        : signer_(signer), algorithm_(algorithm) {
        forms_[0] = signer.signedAttributesContents ? DigestUnderSetTag(algorithm, *signer.signedAttributesContents)
                                                    : content.Of(algorithm);
    }
    static constexpr std::size_t kForms = 2;
    const Bytes& Form(std::size_t index) {
        if (index == 1 && forms_[1].empty() && signer_.signedAttributesContents) {
            const Bytes sorted = SortedAttributes(signer_.signedAttributes);
            if (!sorted.empty()) forms_[1] = platform::Digest(algorithm_, sorted);
            if (forms_[1] == forms_[0]) forms_[1].clear();
        }
        return forms_[index];
    }

  private:
    const SignerInfo& signer_;
    HashAlgorithm algorithm_;
    std::array<Bytes, kForms> forms_;
};

// A DSA key without parameters of its own does not verify: those of an issuer whom nobody has proved could be chosen
// so that a forged signature fits.
bool Verifies(const CertificateContext& certificate, const platform::SignatureScheme& scheme, SignedDigests& digests,
              const Bytes& signature) {
    for (std::size_t form = 0; form < SignedDigests::kForms; ++form) {
        const Bytes& digest = digests.Form(form);
        if (!digest.empty() && platform::CryptVerifySignature(certificate, scheme, digest, signature)) return true;
    }
    return false;
}

std::string_view TextOf(SchemeFault fault) {
    switch (fault) {
        case SchemeFault::none:
            return "";
        case SchemeFault::unknownAlgorithm:
            return "Unsupported signature algorithm.";
        case SchemeFault::badParameters:
            return "The parameters of the signature algorithm do not decode or are not supported.";
        case SchemeFault::differentDigests:
            return "The signature algorithm is for another digest algorithm than the signer's.";
        case SchemeFault::needsWholeMessage:
            return "Unsupported signature algorithm: it signs whole messages and not digests.";
    }
    return "";
}

// Why this signer cannot pass, before the value itself is looked at.
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

// The certificate under which the value verifies and which the attributes name; the first that at least fits otherwise.
Fault CheckValue(const SignerInfo& signer, const ContentDigests& content, HashAlgorithm digest,
                 const CertificatePool& pool, SignerFindings& findings) {
    const CertificatePool candidates = Candidates(signer, pool);
    if (candidates.empty()) return "Cannot find the signing certificate.";
    findings.certificate = candidates.front();
    const SchemeChoice choice = ChooseScheme(signer.signatureAlgorithm, digest);
    if (choice.fault != SchemeFault::none) return std::string(TextOf(choice.fault));
    SignedDigests digests(signer, digest, content);
    Fault fault = signer.signedAttributesContents
                      ? "Authenticated attributes DER digest does not match the decrypted digest."
                      : "The content's digest does not match the decrypted digest.";
    for (const auto& certificate : candidates) {
        if (!Verifies(certificate, choice.scheme, digests, signer.signature)) continue;
        findings.signatureGood = true;
        findings.certificate = certificate;
        fault = CheckSigningCertificate(signer, certificate);
        if (fault.empty()) break;
    }
    return fault;
}

void DescribeCertificate(SignerFindings& findings) {
    if (!findings.certificate) return;
    const auto& info = findings.certificate.Info();
    findings.serialNumber = SerialHex(SerialOf(findings.certificate));
    findings.issuerCN = CommonNameOf(info.Issuer);
    findings.issuerDN = DistinguishedNameOf(info.Issuer);
    findings.subjectKeyIdentifier = UpperHex(SubjectKeyIdentifierOf(findings.certificate));
}

}  // namespace

SignerFindings DescribeSigner(const SignerInfo& signer) {
    SignerFindings findings;
    if (signer.subjectKeyIdentifier) {
        findings.subjectKeyIdentifier = UpperHex(*signer.subjectKeyIdentifier);
    } else {
        findings.serialNumber = SerialHex(signer.serial);
        findings.issuerCN = CommonNameOf(signer.issuer);
        findings.issuerDN = DistinguishedNameOf(signer.issuer);
    }
    findings.digestAlgOid = signer.digestAlgorithm.oid;
    findings.digestAlgName = DigestName(signer.digestAlgorithm.oid);
    findings.signingAlgOid = signer.signatureAlgorithm.oid;
    findings.signingAlgName = SignatureName(signer.signatureAlgorithm.oid);
    findings.signingTime = SigningTimeOf(signer);
    return findings;
}

void CheckDigest(const SignerInfo& signer, const ContentDigests& digests, SignerFindings& findings, OperationLog& log) {
    const auto algorithm = platform::HashFromOid(signer.digestAlgorithm.oid);
    if (!algorithm || !digests.Knows(*algorithm)) {
        log.Line("Unsupported PKCS7 digest algorithm.");
        log.Value("oid", signer.digestAlgorithm.oid);
        return;
    }
    findings.digestMatches = !signer.signedAttributesContents || MessageDigestOf(signer) == digests.Of(*algorithm);
    if (!findings.digestMatches) log.Line(UpperCase(platform::NameOf(*algorithm)) + " message digest does not match.");
}

void CheckSigner(const SignerInfo& signer, const std::string& contentType, const ContentDigests& digests,
                 const CertificatePool& pool, SignerFindings& findings, OperationLog& log) {
    const auto algorithm = platform::HashFromOid(signer.digestAlgorithm.oid);
    if (!algorithm || !digests.Knows(*algorithm)) return;
    const Fault form = CheckForm(signer, contentType, digests);
    if (!form.empty()) log.Line(form);
    const Fault value = CheckValue(signer, digests, *algorithm, pool, findings);
    DescribeCertificate(findings);
    if (!value.empty()) log.Line(value);
    if (findings.signatureGood && signer.signedAttributesContents) {
        log.Line("Digest of authenticated attributes DER matches.");
    }
    findings.passed = findings.digestMatches && findings.signatureGood && form.empty() && value.empty();
}

}  // namespace toolkit::cms

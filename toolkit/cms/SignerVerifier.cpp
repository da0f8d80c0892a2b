#include "toolkit/cms/SignerVerifier.h"

#include <algorithm>

#include "toolkit/cms/Message.h"
#include "toolkit/cms/Names.h"

namespace toolkit::cms {

namespace {

using platform::Bytes;
using platform::CertificateContext;
using platform::HashAlgorithm;

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
        } else if (std::ranges::equal(SerialOf(certificate), platform::Magnitude(signer.serial))) {
            if (std::ranges::equal(certificate.Info().Issuer, signer.issuer)) {
                AddCandidate(exact, certificate);
            } else if (HasIssuerText(certificate, signer)) {
                AddCandidate(alike, certificate);
            }
        }
    }
    return exact.empty() ? alike : exact;
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

// The certificate under which the value verifies and which the attributes name; the first that at least fits otherwise.
Fault CheckValue(const SignerInfo& signer, const ContentDigests& content, HashAlgorithm digest,
                 const CertificatePool& pool, SignerFindings& findings) {
    const CertificatePool candidates = Candidates(signer, pool);
    if (candidates.empty()) return "Cannot find the signing certificate.";
    findings.certificate = candidates.front();
    const SchemeChoice choice = ChooseScheme(signer.signatureAlgorithm, digest);
    findings.unsupported =
        choice.fault == SchemeFault::unknownAlgorithm || choice.fault == SchemeFault::needsWholeMessage;
    if (choice.fault != SchemeFault::none) return std::string(TextOf(choice.fault));
    SignatureCheck check(signer, digest, content);
    Fault fault = signer.signedAttributesContents
                      ? "Authenticated attributes DER digest does not match the decrypted digest."
                      : "The content's digest does not match the decrypted digest.";
    for (const auto& certificate : candidates) {
        if (!check.Verifies(certificate, choice.scheme)) continue;
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
    findings.unsupported = !algorithm || !digests.Knows(*algorithm);
    if (findings.unsupported) return;
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

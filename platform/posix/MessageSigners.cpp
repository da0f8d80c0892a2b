#include <algorithm>
#include <utility>

#include "platform/cms/Algorithms.h"
#include "platform/cms/AttributeChecks.h"
#include "platform/cms/CertificateIds.h"
#include "platform/cms/SignatureCheck.h"
#include "platform/posix/Message.h"
#include "platform/posix/MessageProof.h"
#include "platform/posix/Native.h"

namespace platform {
namespace {

using posix::DecodedMessage;
using posix::FailWith;

// Nobody honest has more than two or three of one name and number; thousands in a hostile message would each cost a
// check by each signer.
constexpr std::size_t kMostCandidates = 8;

Bytes Reversed(ByteView bytes) {
    return {bytes.rbegin(), bytes.rend()};
}

bool HasSerial(const CertificateContext& certificate, const CERT_ID& id) {
    const Bytes wanted = Reversed(id.SerialNumber);
    return std::ranges::equal(cms::SerialOf(certificate), Magnitude(wanted));
}

void AddCandidate(std::vector<CertificateContext>& candidates, const CertificateContext& certificate) {
    if (candidates.size() >= kMostCandidates) return;
    if (std::ranges::find(candidates, certificate) == candidates.end()) candidates.push_back(certificate);
}

// Content and attributes together, before the key comes in: what is signed must be this content.
ErrorCode CheckWithoutKey(DecodedMessage& message, const cms::SignerInfo& signer, HashAlgorithm algorithm) {
    if (!message.Digest()) return GetLastError();
    if (!message.HasDigests()) return CRYPT_E_HASH_VALUE;
    const Bytes digest = message.Digests().Of(algorithm);
    if (digest.empty()) return TRUST_E_BAD_DIGEST;
    if (signer.signedAttributesContents) {
        const Bytes signedDigest = cms::MessageDigestOf(signer);
        if (!signedDigest.empty() && signedDigest != digest) return CRYPT_E_HASH_VALUE;
    }
    const auto fault = cms::CheckForm(signer, message.Parts().contentType, message.Digests());
    return fault.empty() ? ERROR_SUCCESS : TRUST_E_BAD_DIGEST;
}

// One signer's signature, tried with one certificate after the other.
class SignerCheck {
  public:
    SignerCheck(DecodedMessage& message, std::uint32_t index)
        : message_(message), index_(index), signer_(message.Signers()[index]) {}

    ErrorCode With(const CertificateContext& certificate) {
        if (const auto known = message_.KnownStatus(index_, certificate)) return *known;
        if (!std::exchange(prepared_, true)) Prepare();
        const ErrorCode status = value_ ? Try(certificate) : status_;
        message_.RememberStatus(index_, certificate, status);
        return status;
    }

  private:
    // What needs no key.
    void Prepare() {
        const auto algorithm = HashFromOid(signer_.digestAlgorithm.oid);
        if (!algorithm) return;
        choice_ = cms::ChooseScheme(signer_.signatureAlgorithm, *algorithm);
        status_ = CheckWithoutKey(message_, signer_, *algorithm);
        if (status_ != ERROR_SUCCESS) return;
        if (choice_.fault != cms::SchemeFault::none) {
            status_ = TRUST_E_BAD_DIGEST;
            return;
        }
        value_.emplace(signer_, *algorithm, message_.Digests());
    }

    ErrorCode Try(const CertificateContext& certificate) {
        const bool good =
            value_->Verifies(certificate, choice_.scheme) && cms::CheckSigningCertificate(signer_, certificate).empty();
        return good ? ERROR_SUCCESS : TRUST_E_BAD_DIGEST;
    }

    DecodedMessage& message_;
    std::uint32_t index_;
    const cms::SignerInfo& signer_;
    bool prepared_ = false;
    ErrorCode status_ = TRUST_E_BAD_DIGEST;
    cms::SchemeChoice choice_;
    std::optional<cms::SignatureCheck> value_;  // empty: no certificate can make this signature good
};

}  // namespace

const cms::SignerInfo* posix::SignerOf(const CryptMsg& message, std::uint32_t index) {
    const DecodedMessage* decoded = ReadSignedMessage(message);
    if (decoded == nullptr) return nullptr;
    if (index < decoded->Signers().size()) return &decoded->Signers()[index];
    return FailWith<const cms::SignerInfo*>(CRYPT_E_INVALID_INDEX);
}

CERT_ID posix::CertIdOf(const cms::SignerInfo& signer) {
    CERT_ID id;
    if (signer.subjectKeyIdentifier) {
        id.dwIdChoice = CERT_ID_KEY_IDENTIFIER;
        id.KeyId = *signer.subjectKeyIdentifier;
    } else {
        id.dwIdChoice = CERT_ID_ISSUER_SERIAL_NUMBER;
        id.Issuer = CopyOf(signer.issuer);
        id.SerialNumber = Reversed(signer.serial);
    }
    return id;
}

CertStore CertOpenMessageStore(const CryptMsg& message) {
    DecodedMessage* decoded = posix::ReadSignedMessage(message);
    if (decoded == nullptr) return {};
    posix::MessageProof proof{.certificates = decoded->Certificates(), .crls = decoded->Crls(), .ocspAnswers = {}};
    for (const ByteView info : decoded->OtherRevocationInfos())
        proof.AddOtherInfo(info);
    for (const cms::SignerInfo& signer : decoded->Signers())
        proof.AddAttributes(signer.unsignedAttributes);

    auto store = CertOpenMemoryStore();
    for (const auto encoded : proof.certificates) {
        const auto certificate = CertCreateCertificateContext(encoded);
        if (certificate) CertAddCertificateContextToStore(store, certificate, CERT_STORE_ADD_ALWAYS);
    }
    for (const auto encoded : proof.crls) {
        const auto crl = CertCreateCRLContext(encoded);
        if (crl) CertAddCRLContextToStore(store, crl);
    }
    store.Backend()->AddOcspAnswers(proof.ocspAnswers);
    return store;
}

std::vector<CertificateContext> CertFindSubjectCertificates(const CertStore& store, const CERT_ID& id) {
    std::vector<CertificateContext> exact, alike;
    const bool byKey = id.dwIdChoice == CERT_ID_KEY_IDENTIFIER;
    const std::u16string issuer = byKey ? std::u16string() : posix::CanonicalName(id.Issuer);
    for (const auto& certificate : CertEnumCertificatesInStore(store)) {
        if (byKey) {
            if (cms::SubjectKeyIdentifierOf(certificate) == id.KeyId) AddCandidate(exact, certificate);
        } else if (HasSerial(certificate, id)) {
            if (certificate.Info().Issuer == id.Issuer) {
                AddCandidate(exact, certificate);
            } else if (certificate.Backend()->decoded->CanonicalIssuer() == issuer) {
                AddCandidate(alike, certificate);
            }
        }
    }
    auto& found = exact.empty() ? alike : exact;
    if (found.empty()) SetLastError(CRYPT_E_NOT_FOUND);
    return std::move(found);
}

bool CryptMsgControl(const CryptMsg& message, std::uint32_t, CMSG_CTRL<CMSG_CTRL_VERIFY_SIGNATURE_EX_PARA>,
                     const CMSG_CTRL_VERIFY_SIGNATURE_EX_PARA& parameters) {
    const cms::SignerInfo* signer = posix::SignerOf(message, parameters.dwSignerIndex);
    if (signer == nullptr) return false;
    if (parameters.dwSignerType != CMSG_VERIFY_SIGNER_CERT || !parameters.pvSigner) {
        return FailWith(ERROR_INVALID_PARAMETER);
    }
    SignerCheck check(*message.Backend()->Decoded(), parameters.dwSignerIndex);
    const ErrorCode status = check.With(parameters.pvSigner);
    return status == ERROR_SUCCESS || FailWith(status);
}

std::optional<FoundSigner> CryptMsgGetAndVerifySigner(const CryptMsg& message, std::uint32_t index,
                                                      const std::vector<CertStore>& stores) {
    DecodedMessage* decoded = posix::ReadSignedMessage(message);
    if (decoded == nullptr) return std::nullopt;
    if (decoded->Signers().empty()) return FailWith<std::optional<FoundSigner>>(CRYPT_E_NO_SIGNER);
    const cms::SignerInfo* signer = posix::SignerOf(message, index);
    if (signer == nullptr) return std::nullopt;
    const CERT_ID id = posix::CertIdOf(*signer);
    FoundSigner first{{}, CRYPT_E_SIGNER_NOT_FOUND};
    SignerCheck check(*decoded, index);
    for (const auto& store : stores) {
        for (const auto& certificate : CertFindSubjectCertificates(store, id)) {
            FoundSigner found{certificate, check.With(certificate)};
            if (found.status == ERROR_SUCCESS) return found;
            if (!first.certificate) first = std::move(found);
        }
    }
    return first;
}

std::optional<SignedMessageParts> CryptMsgGetSignedParts(const CryptMsg& message) {
    DecodedMessage* decoded = posix::ReadSignedMessage(message);
    if (decoded == nullptr || !decoded->Digest()) return std::nullopt;
    return SignedMessageParts{decoded->Parts(), decoded->Signers(), decoded->Digests(), decoded->HasDigests()};
}

}  // namespace platform

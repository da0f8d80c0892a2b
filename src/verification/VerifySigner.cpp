#include "src/verification/VerifySigner.h"

#include <algorithm>

#include "platform/System.h"
#include "platform/Text.h"
#include "src/Norvik.h"
#include "src/verification/TimeText.h"

namespace verification {
namespace {

std::u16string HashName(tessaly::CryptMessageDecode& decoder, std::uint32_t index) {
    tessaly::CryptOID algorithm;
    if (!decoder.GetHashAlgorithm(index, algorithm)) return {};
    auto name = algorithm.Name();
    std::ranges::transform(name, name.begin(), platform::CharUpperW);
    return name;
}

void ReadSigner(tessaly::CryptMessageDecode& decoder, std::uint32_t index, SignatureEntry& entry) {
    entry.digest = decoder.GetDigest();
    entry.hashAlgorithm = HashName(decoder, index);
    entry.signingTime = decoder.GetSigningTime(index);
    if (entry.signingTime != 0) entry.signingTimeText = LocalTimeText(entry.signingTime);
    entry.comment = decoder.GetComment(index);
    entry.isCades = decoder.IsCades(index);
    entry.hasTimestamp = decoder.HasTimestamp(index);
    entry.profile = entry.isCades ? (entry.hasTimestamp ? u"CAdES-BASELINE-T" : u"CAdES-BASELINE-B") : u"CMS-NOT-ETSI";
}

bool JudgeCertificate(SignatureEntry& entry, const CrlPlaces& places) {
    auto& certificate = *entry.certificate;
    entry.certTimeValidity =
        platform::CertVerifyTimeValidity(platform::GetSystemTimeAsFileTime(), certificate.Context());
    const auto chain = certificate.BuildChain(tessaly::CryptStore(u"ROOT"));
    entry.certStatus = chain.status;
    entry.certMessage = chain.text;
    if (chain.status == platform::CRYPT_E_NO_REVOCATION_CHECK || chain.status == platform::CRYPT_E_REVOCATION_OFFLINE) {
        entry.noCrlUrl = certificate.GetCrlUrls().empty();
        auto own =
            CheckCrl(certificate.Context(), places.hashRoutine, places.cacheDir, places.workDir, places.alternateUrl);
        entry.certStatus = own.status;
        entry.certMessage = std::move(own.text);
    }
    return chain.status == 0;
}

}  // namespace

CrlPlaces CrlPlaces::OfThisProcess() {
    CrlPlaces places;
    if (const auto application = CNorvikApp::Current()) {
        places.cacheDir = application->CrlCacheFolder();
        places.workDir = application->SessionFolder();
    }
    return places;
}

bool VerifySigner(tessaly::CryptMessageDecode& decoder, std::uint32_t index, const platform::FoundSigner& signer,
                  SignatureEntry& entry, const CrlPlaces& places) {
    entry.certificate = std::make_unique<tessaly::CryptCertificate>(signer.certificate, true);
    entry.signStatus = signer.status;
    entry.signMessage = signer.status == 0 ? u"Подписът е валиден" : tessaly::StatusText(signer.status);
    ReadSigner(decoder, index, entry);
    return JudgeCertificate(entry, places);
}

}  // namespace verification

#include "src/certificates/Choice.h"

#include <algorithm>

#include "platform/System.h"
#include "src/Norvik.h"
#include "src/verification/CheckCrl.h"

namespace certificates {

std::vector<tessaly::CryptCertificate> OfferedCertificates(const tessaly::CryptStore& store) {
    const auto now = platform::GetSystemTimeAsFileTime();
    std::vector<tessaly::CryptCertificate> offered;
    if (!store.store) return offered;
    for (const auto& certificate : platform::CertEnumCertificatesInStore(store.store))
        if (platform::CertVerifyTimeValidity(now, certificate) == 0) offered.emplace_back(certificate, true);
    std::ranges::reverse(offered);
    return offered;
}

tessaly::CertStatusResult CheckChoice(const platform::CertificateContext& certificate) {
    const auto application = CNorvikApp::Current();
    if (!application) return {tessaly::StatusText(tessaly::kStatusNotBuilt), tessaly::kStatusNotBuilt};
    return verification::CheckCrl(certificate, verification::HashToHex, application->CrlCacheFolder(),
                                  application->SessionFolder());
}

bool LetsPass(const tessaly::CertStatusResult& answer) {
    return answer.status == platform::ERROR_SUCCESS || answer.status == platform::CRYPT_E_NO_REVOCATION_CHECK ||
           answer.status == platform::CRYPT_E_REVOCATION_OFFLINE;
}

bool AcceptsChoice(const platform::CertificateContext& certificate) {
    const auto answer = CheckChoice(certificate);
    if (LetsPass(answer)) return true;
    if (const auto application = CNorvikApp::Current())
        application->Interface().ShowMessage({.text = answer.text, .icon = ui::Message::Icon::error});
    return false;
}

}  // namespace certificates

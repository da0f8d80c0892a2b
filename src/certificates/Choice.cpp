#include "src/certificates/Choice.h"

#include "src/Norvik.h"
#include "src/verification/CheckCrl.h"

namespace certificates {

bool AcceptsChoice(const platform::CertificateContext& certificate) {
    const auto application = CNorvikApp::Current();
    if (!application) return false;
    const auto answer = verification::CheckCrl(certificate, verification::HashToHex, application->CrlCacheFolder(),
                                               application->SessionFolder());
    switch (answer.status) {
        case 0:
        case platform::CRYPT_E_NO_REVOCATION_CHECK:
        case platform::CRYPT_E_REVOCATION_OFFLINE:
            return true;
        default:
            application->Interface().ShowMessage({.text = answer.text, .icon = ui::Message::Icon::error});
            return false;
    }
}

}  // namespace certificates

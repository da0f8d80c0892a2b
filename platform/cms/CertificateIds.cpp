#include "platform/cms/CertificateIds.h"

#include <algorithm>

#include "platform/formats/Der.h"

namespace platform::cms {

Bytes SerialOf(const CertificateContext& certificate) {
    Bytes serial = certificate.Info().SerialNumber;
    std::reverse(serial.begin(), serial.end());
    return CopyOf(Magnitude(serial));
}

Bytes SubjectKeyIdentifierOf(const CertificateContext& certificate) {
    return CertGetCertificateContextProperty(certificate, CERT_KEY_IDENTIFIER_PROP_ID).value_or(Bytes{});
}

}  // namespace platform::cms

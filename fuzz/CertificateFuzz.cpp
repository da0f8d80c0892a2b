// Certificates, CRLs and the files that hold them: whatever the bytes are, they decode or are refused; every accessor
// lives with what decoded.

#include "platform/posix/CertificateFile.h"
#include "platform/posix/Native.h"

namespace {

using namespace platform;

void Read(const CertificateContext& certificate) {
    for (const std::uint32_t type : {CERT_NAME_EMAIL_TYPE, CERT_NAME_RDN_TYPE, CERT_NAME_SIMPLE_DISPLAY_TYPE}) {
        CertGetNameStringW(certificate, type, 0);
        CertGetNameStringW(certificate, type, CERT_NAME_ISSUER_FLAG);
    }
    CertGetNameStringW(certificate, CERT_NAME_ATTR_TYPE, 0, "2.5.4.10");
    CertNameToStrW(certificate.Info().Subject, CERT_X500_NAME_STR | CERT_NAME_STR_REVERSE_FLAG);
    posix::CanonicalName(certificate.Info().Issuer);
    CertGetCertificateContextProperty(certificate, CERT_KEY_IDENTIFIER_PROP_ID);
    CertGetEnhancedKeyUsage(certificate);
    CertGetIntendedKeyUsage(certificate);
    for (const auto& extension : certificate.Info().rgExtension) {
        DecodeAuthorityKeyId2(extension.Value);
        DecodeCrlDistPoints(extension.Value);
    }
    posix::NativeOf(certificate);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const ByteView bytes(data, size);
    const auto file = posix::ReadCertificateFile(bytes);
    for (const auto& certificate : file.certificates) {
        Read(certificate);
        if (CertCreateCertificateContext(certificate.Encoded()) != certificate) __builtin_trap();
        if (!posix::WithoutCertificate(bytes, certificate)) __builtin_trap();
    }
    for (const auto& crl : file.crls)
        posix::NativeOf(crl);
    return 0;
}

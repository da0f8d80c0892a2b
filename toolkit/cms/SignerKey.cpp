#include "toolkit/cms/SignerKey.h"

#include <string>

#include "platform/Text.h"
#include "toolkit/cms/PlatformFailure.h"
#include "toolkit/cms/SignatureAlgorithms.h"

namespace toolkit::cms {

using platform::Bytes;

namespace {

void LogKeyFailure(OperationLog& log, std::string_view message) {
    LogPlatformFailure(log, message);
    const std::u16string token = platform::TokenErrorDetail();
    if (!token.empty()) log.Value("tokenError", platform::ToUtf8(token));
}

void LogMissingKey(const platform::CertificateContext& certificate, OperationLog& log) {
    log.Line("Certificate does not have the associated private key.");
    log.Value("certDN",
              platform::ToUtf8(platform::CertNameToStrW(certificate.Info().Subject, platform::CERT_X500_NAME_STR)));
}

}  // namespace

std::optional<SignerKey> SignerKey::Open(const platform::CertificateContext& certificate, OperationLog& log) {
    if (!platform::CertHasPrivateKey(certificate)) {
        LogMissingKey(certificate, log);
        return std::nullopt;
    }
    const auto acquired = platform::CryptAcquireCertificatePrivateKey(
        certificate, platform::CRYPT_ACQUIRE_COMPARE_KEY_FLAG | platform::CRYPT_ACQUIRE_PREFER_NCRYPT_KEY_FLAG);
    if (acquired) return SignerKey(acquired->key);
    if (platform::GetLastError() == platform::CRYPT_E_NO_KEY_PROPERTY) {
        LogMissingKey(certificate, log);
    } else {
        LogKeyFailure(log, "Failed to open the private key of the certificate.");
    }
    return std::nullopt;
}

Bytes SignerKey::Sign(platform::HashAlgorithm hash, platform::ByteView digest, OperationLog& log) const {
    const bool inProcess = key_.IsExportable();
    if (!inProcess) log.Line("The private key is not exportable, will use MS CNG...");
    Bytes signature = platform::NCryptSignHash(key_, hash, digest);
    if (signature.empty()) {
        std::string message = "Failed to ";
        message.append(FamilyName(Algorithm())).append(" sign digest of authenticated attributes");
        LogKeyFailure(log, message.append(inProcess ? "." : " using CNG."));
    }
    return signature;
}

}  // namespace toolkit::cms

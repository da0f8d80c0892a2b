#include "src/certificates/KeyProbe.h"

#include <array>
#include <stdexcept>

#include "crypt/CryptStore.h"
#include "platform/Hash.h"
#include "platform/Keys.h"
#include "platform/System.h"
#include "platform/Text.h"
#include "src/Norvik.h"

namespace certificates {
namespace {

tessaly::CryptStore ValidOnes(const tessaly::CryptStore& source) {
    tessaly::CryptStore valid;
    const auto now = platform::GetSystemTimeAsFileTime();
    for (const auto& certificate : platform::CertEnumCertificatesInStore(source.store)) {
        if (platform::CertVerifyTimeValidity(now, certificate) == 0)
            platform::CertAddCertificateContextToStore(valid.store, certificate,
                                                       platform::CERT_STORE_ADD_REPLACE_EXISTING);
    }
    return valid;
}

[[noreturn]] void ThrowSystemText() {
    throw std::runtime_error(platform::ToUtf8(tessaly::FormatErrorText(platform::GetLastError())));
}

// The place is the one that support has always found in users' reports.
[[noreturn]] void ThrowAtSigning() {
    tessaly::CommonClass failure;
    failure.lastError = platform::GetLastError();
    throw std::runtime_error(platform::ToUtf8(failure.FormatErrorAt(u"src/NorvikMain", 556)));
}

platform::SignatureScheme SchemeOf(platform::KeyAlgorithm algorithm) {
    using Kind = platform::SignatureScheme::Kind;
    const auto kind = algorithm == platform::KeyAlgorithm::rsa     ? Kind::rsaPkcs1
                      : algorithm == platform::KeyAlgorithm::ecdsa ? Kind::ecdsa
                                                                   : Kind::dsa;
    return {.kind = kind, .hash = platform::HashAlgorithm::sha1};
}

void SignSomething(const platform::CertificateContext& certificate) {
    const auto acquired = platform::CryptAcquireCertificatePrivateKey(
        certificate, platform::CRYPT_ACQUIRE_PREFER_NCRYPT_KEY_FLAG | platform::CRYPT_ACQUIRE_COMPARE_KEY_FLAG);
    if (!acquired) ThrowSystemText();
    constexpr std::array<std::uint8_t, 4> message{1, 2, 3, 4};
    const auto digest = platform::Digest(platform::HashAlgorithm::sha1, message);
    const auto signature = platform::NCryptSignHash(acquired->key, platform::HashAlgorithm::sha1, digest);
    if (signature.empty()) ThrowAtSigning();
    if (!platform::CryptVerifySignature(certificate, SchemeOf(acquired->key.Algorithm()), digest, signature))
        ThrowAtSigning();
}

}  // namespace

void ProbeChosenKey() {
    const auto app = CNorvikApp::Current();
    if (!app) return;
    const tessaly::CryptStore source(u"MY");
    if (!source.store) throw std::runtime_error(platform::ToUtf8(source.GetErrorText()));
    const auto chosen = app->Interface().AskCertificate({u"Изберете сертификат ...", ValidOnes(source)});
    if (!chosen) return;
    const platform::PinPromptScope pinScope(app->Interface());
    SignSomething(chosen);
}

}  // namespace certificates

#include "crypt/CryptContext.h"

namespace tessaly {

bool CryptContext::Acquire(const platform::CertificateContext& certificate) {
    constexpr std::uint32_t flags =
        platform::CRYPT_ACQUIRE_PREFER_NCRYPT_KEY_FLAG | platform::CRYPT_ACQUIRE_COMPARE_KEY_FLAG;
    const auto acquired = platform::CryptAcquireCertificatePrivateKey(certificate, flags);
    // Never the key of another certificate, asked for before.
    handle = {};
    mustFree = isCngKey = false;
    if (!acquired) {
        lastError = platform::GetLastError();
        return false;
    }
    handle = acquired->key;
    mustFree = acquired->fCallerFree;
    isCngKey = acquired->dwKeySpec == platform::CERT_NCRYPT_KEY_SPEC;
    return true;
}

}  // namespace tessaly

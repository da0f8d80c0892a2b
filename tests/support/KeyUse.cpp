#include "tests/support/KeyUse.h"

#include "tests/support/Made.h"

namespace tests {
namespace {
const platform::Bytes kContent = {'N', 'o', 'r', 'v', 'i', 'k'};
}

std::optional<platform::AcquiredKey> AcquireKey(const platform::CertificateContext& certificate) {
    platform::SetLastError(platform::ERROR_SUCCESS);
    return platform::CryptAcquireCertificatePrivateKey(
        certificate, platform::CRYPT_ACQUIRE_PREFER_NCRYPT_KEY_FLAG | platform::CRYPT_ACQUIRE_COMPARE_KEY_FLAG);
}

platform::Bytes SignContent(const platform::PrivateKey& key, platform::HashAlgorithm hash) {
    platform::SetLastError(platform::ERROR_SUCCESS);
    return platform::NCryptSignHash(key, hash, platform::Digest(hash, kContent));
}

bool IsContentSignature(const Certificate& signer, const platform::Bytes& signature, platform::HashAlgorithm hash) {
    const auto context = Made<EVP_MD_CTX_free>(EVP_MD_CTX_new(), "verification");
    const std::string name(platform::NameOf(hash));
    EVP_PKEY* key = X509_get0_pubkey(signer.Native());
    return EVP_DigestVerifyInit(context.get(), nullptr, EVP_get_digestbyname(name.c_str()), nullptr, key) == 1 &&
           EVP_DigestVerify(context.get(), signature.data(), signature.size(), kContent.data(), kContent.size()) == 1;
}

}  // namespace tests

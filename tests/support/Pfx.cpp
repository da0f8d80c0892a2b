#include <openssl/pkcs12.h>
#include <openssl/provider.h>

#include "tests/support/Made.h"
#include "tests/support/Pki.h"

namespace tests {
namespace {

// A context of its own for the old ciphers: loading them into the process's default one would hide that the code under
// test forgot to.
OSSL_LIB_CTX* OldCiphers() {
    static const auto context = Made<OSSL_LIB_CTX_free>(OSSL_LIB_CTX_new(), "old ciphers");
    static const auto load = [](const char* name) {
        return Made<OSSL_PROVIDER_unload>(OSSL_PROVIDER_load(context.get(), name), "old ciphers");
    };
    static const auto legacy = load("legacy"), usual = load("default");  // unloaded before their context goes
    return context.get();
}

struct Ciphers {
    int certificates, keys, iterations;
};
Ciphers CiphersOf(PfxCipher cipher) {
    constexpr int des3 = NID_pbe_WithSHA1And3_Key_TripleDES_CBC;
    if (cipher == PfxCipher::none) return {-1, -1, 0};
    if (cipher == PfxCipher::aes256) return {NID_aes_256_cbc, NID_aes_256_cbc, 2048};
    return {cipher == PfxCipher::des3 ? des3 : NID_pbe_WithSHA1And40BitRC2_CBC, des3, 2000};
}

// What ties a key to its certificate: the certificate's SHA-1.
void Label(PKCS12_SAFEBAG* bag, const Certificate& certificate, const std::string& friendlyName) {
    Bytes digest(20);
    X509_digest(certificate.Native(), EVP_sha1(), digest.data(), nullptr);
    Require(PKCS12_add_localkeyid(bag, digest.data(), static_cast<int>(digest.size())) == 1, "key identifier");
    Require(friendlyName.empty() || PKCS12_add_friendlyname_utf8(bag, friendlyName.c_str(), -1) == 1, "friendly name");
}

using Bags = std::unique_ptr<STACK_OF(PKCS12_SAFEBAG),
                             decltype([](auto* bags) { sk_PKCS12_SAFEBAG_pop_free(bags, PKCS12_SAFEBAG_free); })>;
using Safes = std::unique_ptr<STACK_OF(PKCS7), decltype([](auto* safes) { sk_PKCS7_pop_free(safes, PKCS7_free); })>;

}  // namespace

Bytes MakePfx(const PfxSpec& spec) {
    const Ciphers ciphers = CiphersOf(spec.cipher);
    const char* const password = spec.password.c_str();
    STACK_OF(PKCS12_SAFEBAG)* certificates = nullptr, *keys = nullptr;
    for (const Certificate& certificate : spec.certificates) {
        PKCS12_SAFEBAG* bag = PKCS12_add_cert(&certificates, certificate.Native());
        Require(bag != nullptr, "PFX certificate");
        if (!certificate.PrivateKey()) continue;
        Label(bag, certificate, spec.friendlyName);
        PKCS12_SAFEBAG* key = PKCS12_add_key_ex(&keys, certificate.PrivateKey().get(), 0, ciphers.iterations,
                                                ciphers.keys, password, OldCiphers(), nullptr);
        Require(key != nullptr, "PFX key");
        Label(key, certificate, spec.friendlyName);
    }
    const Bags certificateOwner(certificates), keyOwner(keys);
    STACK_OF(PKCS7)* safes = nullptr;
    for (const auto& [bags, cipher] : {std::pair(certificates, ciphers.certificates), {keys, -1}})
        Require(bags == nullptr ||
                    PKCS12_add_safe_ex(&safes, bags, cipher, ciphers.iterations, password, OldCiphers(), nullptr) == 1,
                "PFX content");
    const Safes safesOwner(safes);
    const auto pfx = Made<PKCS12_free>(PKCS12_add_safes_ex(safes, 0, OldCiphers(), nullptr), "PFX");
    const EVP_MD* mac = spec.cipher == PfxCipher::aes256 ? EVP_sha256() : EVP_sha1();
    Require(PKCS12_set_mac(pfx.get(), password, -1, nullptr, 0, 2048, mac) == 1, "PFX checksum");
    return platform::posix::EncodeDer<i2d_PKCS12>(pfx.get());
}

}  // namespace tests

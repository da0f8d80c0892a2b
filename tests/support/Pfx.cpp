#include <openssl/crypto.h>
#include <openssl/pkcs12.h>
#include <openssl/provider.h>

#include <array>
#include <stdexcept>

#include "platform/posix/OpenSsl.h"
#include "tests/support/Pki.h"
#include "tests/support/PkiFault.h"

namespace tests {
namespace {

using platform::posix::Owned;
using BagsPtr = Owned<STACK_OF(PKCS12_SAFEBAG),
                      +[](STACK_OF(PKCS12_SAFEBAG) * bags) { sk_PKCS12_SAFEBAG_pop_free(bags, PKCS12_SAFEBAG_free); }>;
using SafesPtr = Owned<STACK_OF(PKCS7), +[](STACK_OF(PKCS7) * safes) { sk_PKCS7_pop_free(safes, PKCS7_free); }>;

// A context of its own for the old ciphers: loading them into the process's default one would hide that the code under
// test forgot to.
class OldCipherContext {
  public:
    OldCipherContext()
        : context_(OSSL_LIB_CTX_new()),
          legacy_(OSSL_PROVIDER_load(context_.get(), "legacy")),
          default_(OSSL_PROVIDER_load(context_.get(), "default")) {
        Require(legacy_ != nullptr && default_ != nullptr, "old ciphers");
    }
    [[nodiscard]] OSSL_LIB_CTX* Get() const { return context_.get(); }

  private:
    Owned<OSSL_LIB_CTX, OSSL_LIB_CTX_free> context_;
    Owned<OSSL_PROVIDER, OSSL_PROVIDER_unload> legacy_, default_;  // unloaded before their context goes
};
OSSL_LIB_CTX* OldCiphers() {
    static const OldCipherContext context;
    return context.Get();
}

struct Ciphers {
    int certificates, keys, iterations;
};
Ciphers CiphersOf(PfxCipher cipher) {
    switch (cipher) {
        case PfxCipher::none:
            return {-1, -1, 0};
        case PfxCipher::aes256:
            return {NID_aes_256_cbc, NID_aes_256_cbc, 2048};
        case PfxCipher::des3:
            return {NID_pbe_WithSHA1And3_Key_TripleDES_CBC, NID_pbe_WithSHA1And3_Key_TripleDES_CBC, 2000};
        case PfxCipher::rc2_40:
            return {NID_pbe_WithSHA1And40BitRC2_CBC, NID_pbe_WithSHA1And3_Key_TripleDES_CBC, 2000};
    }
    throw std::invalid_argument("PFX cipher");
}

// What ties a key to its certificate: the certificate's SHA-1.
void Label(PKCS12_SAFEBAG* bag, const Certificate& certificate, const std::string& friendlyName) {
    std::array<unsigned char, EVP_MAX_MD_SIZE> digest{};
    unsigned int size = 0;
    X509_digest(certificate.Native(), EVP_sha1(), digest.data(), &size);
    Require(PKCS12_add_localkeyid(bag, digest.data(), static_cast<int>(size)) == 1, "key identifier");
    if (friendlyName.empty()) return;
    Require(PKCS12_add_friendlyname_utf8(bag, friendlyName.c_str(), -1) == 1, "friendly name");
}

void Add(STACK_OF(PKCS7) * *safes, STACK_OF(PKCS12_SAFEBAG) * bags, int cipher, const Ciphers& ciphers,
         const std::string& password) {
    if (bags == nullptr) return;
    Require(PKCS12_add_safe_ex(safes, bags, cipher, ciphers.iterations, password.c_str(), OldCiphers(), nullptr) == 1,
            "PFX content");
}

}  // namespace

Bytes MakePfx(const PfxSpec& spec) {
    const Ciphers ciphers = CiphersOf(spec.cipher);
    STACK_OF(PKCS12_SAFEBAG)* certificates = nullptr;
    STACK_OF(PKCS12_SAFEBAG)* keys = nullptr;
    STACK_OF(PKCS7)* safes = nullptr;
    for (const Certificate& certificate : spec.certificates) {
        PKCS12_SAFEBAG* bag = PKCS12_add_cert(&certificates, certificate.Native());
        Require(bag != nullptr, "PFX certificate");
        if (!certificate.PrivateKey()) continue;
        Label(bag, certificate, spec.friendlyName);
        PKCS12_SAFEBAG* key = PKCS12_add_key_ex(&keys, certificate.PrivateKey().get(), 0, ciphers.iterations,
                                                ciphers.keys, spec.password.c_str(), OldCiphers(), nullptr);
        Require(key != nullptr, "PFX key");
        Label(key, certificate, spec.friendlyName);
    }
    const BagsPtr certificateOwner(certificates), keyOwner(keys);
    Add(&safes, certificates, ciphers.certificates, ciphers, spec.password);
    Add(&safes, keys, -1, ciphers, spec.password);
    const SafesPtr safesOwner(safes);
    const platform::posix::Pkcs12Ptr pfx(PKCS12_add_safes_ex(safes, 0, OldCiphers(), nullptr));
    Require(pfx != nullptr, "PFX");
    const EVP_MD* mac = spec.cipher == PfxCipher::aes256 ? EVP_sha256() : EVP_sha1();
    Require(PKCS12_set_mac(pfx.get(), spec.password.c_str(), -1, nullptr, 0, 2048, mac) == 1, "PFX checksum");
    return platform::posix::EncodeDer<i2d_PKCS12>(pfx.get());
}

}  // namespace tests

#include <openssl/pem.h>

#include <map>
#include <mutex>
#include <stdexcept>
#include <utility>

#include "platform/posix/OpenSsl.h"
#include "tests/support/Pki.h"
#include "tests/support/PkiFault.h"

namespace tests {
namespace {

using platform::posix::BioPtr;

Key Owner(EVP_PKEY* key) {
    Require(key != nullptr, "key");
    return {key, EVP_PKEY_free};
}

Key ReadKey(const std::string& name) {
    const std::string pem = ReadFile(std::filesystem::path(NORVIK_SOURCE_DIR) / "tests/data/keys" / name);
    const BioPtr bio(BIO_new_mem_buf(pem.data(), static_cast<int>(pem.size())));
    return Owner(PEM_read_bio_PrivateKey(bio.get(), nullptr, nullptr, nullptr));
}

Key GenerateDsaKey() {
    const platform::posix::EvpKeyContextPtr parameters(EVP_PKEY_CTX_new_from_name(nullptr, "DSA", nullptr));
    EVP_PKEY* made = nullptr;
    Require(EVP_PKEY_paramgen_init(parameters.get()) == 1 &&
                EVP_PKEY_CTX_set_dsa_paramgen_bits(parameters.get(), 2048) == 1 &&
                EVP_PKEY_paramgen(parameters.get(), &made) == 1,
            "DSA parameters");
    const Key domain = Owner(std::exchange(made, nullptr));
    const platform::posix::EvpKeyContextPtr keys(EVP_PKEY_CTX_new(domain.get(), nullptr));
    Require(EVP_PKEY_keygen_init(keys.get()) == 1 && EVP_PKEY_keygen(keys.get(), &made) == 1, "DSA key");
    return Owner(made);
}

}  // namespace

Key GenerateKey(KeyType type) {
    switch (type) {
        case KeyType::rsa2048:
            return Owner(EVP_RSA_gen(2048));
        case KeyType::rsa3072:
            return Owner(EVP_RSA_gen(3072));
        case KeyType::rsa4096:
            return Owner(EVP_RSA_gen(4096));
        case KeyType::p256:
            return Owner(EVP_EC_gen("P-256"));
        case KeyType::p384:
            return Owner(EVP_EC_gen("P-384"));
        case KeyType::dsa2048:
            return GenerateDsaKey();
    }
    throw std::invalid_argument("key type");
}

Key TestKey(KeyType type, unsigned index) {
    static std::mutex mutex;
    static std::map<std::pair<KeyType, unsigned>, Key> keys;
    const std::lock_guard lock(mutex);
    Key& key = keys[{type, index}];
    if (key) return key;
    const std::string number = std::string("-").append(std::to_string(index)).append(".pem");
    switch (type) {
        case KeyType::rsa2048:
            return key = ReadKey("rsa2048" + number);
        case KeyType::rsa3072:
            return key = ReadKey("rsa3072" + number);
        case KeyType::rsa4096:
            return key = ReadKey("rsa4096" + number);
        case KeyType::dsa2048:
            return key = ReadKey("dsa2048" + number);
        case KeyType::p256:
        case KeyType::p384:
            return key = GenerateKey(type);
    }
    throw std::invalid_argument("key type");
}

}  // namespace tests

#include <openssl/pem.h>

#include <map>
#include <mutex>
#include <stdexcept>

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

}  // namespace

Key GenerateKey(KeyType type) {
    switch (type) {
        case KeyType::rsa2048:
            return Owner(EVP_RSA_gen(2048));
        case KeyType::p256:
            return Owner(EVP_EC_gen("P-256"));
        case KeyType::p384:
            return Owner(EVP_EC_gen("P-384"));
        default:
            throw std::invalid_argument("a key that takes too long to make");
    }
}

Key TestKey(KeyType type, unsigned index) {
    static std::mutex mutex;
    static std::map<std::pair<KeyType, unsigned>, Key> keys;
    static const std::map<KeyType, std::string> files = {{KeyType::rsa2048, "rsa2048-"},
                                                         {KeyType::rsa3072, "rsa3072-"},
                                                         {KeyType::rsa4096, "rsa4096-"},
                                                         {KeyType::dsa2048, "dsa2048-"}};
    const std::lock_guard lock(mutex);
    Key& key = keys[{type, index}];
    const auto file = files.find(type);
    if (!key) key = file == files.end() ? GenerateKey(type) : ReadKey(file->second + std::to_string(index) + ".pem");
    return key;
}

}  // namespace tests

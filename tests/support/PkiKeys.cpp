#include <openssl/pem.h>

#include <map>
#include <mutex>

#include "tests/support/Made.h"
#include "tests/support/Pki.h"

namespace tests {

Key GenerateKey(KeyType type) {
    if (type == KeyType::rsa2048) return Made<EVP_PKEY_free>(EVP_RSA_gen(2048), "RSA key");
    if (type == KeyType::p256) return Made<EVP_PKEY_free>(EVP_EC_gen("P-256"), "P-256 key");
    if (type == KeyType::p384) return Made<EVP_PKEY_free>(EVP_EC_gen("P-384"), "P-384 key");
    throw std::invalid_argument("a key that takes too long to make");
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
    if (!key && file == files.end()) key = GenerateKey(type);
    if (key) return key;
    const auto pem = ReadFile(NORVIK_SOURCE_DIR "/tests/data/keys/" + file->second + std::to_string(index) + ".pem");
    const auto bio = Made<BIO_free_all>(BIO_new_mem_buf(pem.data(), static_cast<int>(pem.size())), "key");
    return key = Made<EVP_PKEY_free>(PEM_read_bio_PrivateKey(bio.get(), nullptr, nullptr, nullptr), "key");
}

}  // namespace tests

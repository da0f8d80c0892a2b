#include "platform/posix/SignatureFacts.h"

#include <openssl/core_names.h>
#include <openssl/params.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <mutex>
#include <unordered_map>

#include "platform/posix/Native.h"

namespace platform::posix {
namespace {

constexpr std::size_t kMaxFacts = 4096;
constexpr int kMinFactoringBits = 1000;
// The strength that the crypto library gives a digest against collisions: SHA-1 has 63, MD5 39.
constexpr int kMinDigestStrength = 60;

using Fingerprint = std::array<std::uint8_t, 32>;
struct Pair {
    Fingerprint certificate{}, issuer{};
    bool operator==(const Pair&) const = default;
};
struct HashOfPair {
    std::size_t operator()(const Pair& pair) const {
        std::size_t a = 0, b = 0;
        std::memcpy(&a, pair.certificate.data(), sizeof a);
        std::memcpy(&b, pair.issuer.data(), sizeof b);
        return a ^ (b * 31);
    }
};

class FactTable {
  public:
    std::optional<bool> Find(const Pair& pair) {
        const std::scoped_lock lock(lock_);
        const auto found = facts_.find(pair);
        if (found == facts_.end()) return std::nullopt;
        return found->second;
    }
    void Keep(const Pair& pair, bool isSigned) {
        const std::scoped_lock lock(lock_);
        if (facts_.size() >= kMaxFacts) facts_.clear();
        facts_.emplace(pair, isSigned);
    }

  private:
    std::mutex lock_;
    std::unordered_map<Pair, bool, HashOfPair> facts_;
};

std::optional<Fingerprint> FingerprintOf(const CertificateContext& certificate) {
    const Bytes& sha256 = certificate.Backend()->decoded->Sha256();
    Fingerprint print;
    if (sha256.size() != print.size()) return std::nullopt;  // no such digest on this host
    std::ranges::copy(sha256, print.begin());
    return print;
}

}  // namespace

bool IsSignedBy(const CertificateContext& certificate, const CertificateContext& issuer) {
    static FactTable table;
    const auto subjectPrint = FingerprintOf(certificate);
    const auto issuerPrint = FingerprintOf(issuer);
    if (!subjectPrint || !issuerPrint) return false;
    const Pair pair{*subjectPrint, *issuerPrint};
    if (const auto known = table.Find(pair)) return *known;

    X509* native = NativeOf(certificate);
    X509* nativeIssuer = NativeOf(issuer);
    EVP_PKEY* key = nativeIssuer ? X509_get0_pubkey(nativeIssuer) : nullptr;
    const bool isSigned = native && key && X509_verify(native, key) == 1;
    DrainErrorQueue();
    table.Keep(pair, isSigned);
    return isSigned;
}

bool HasUselessExponent(const EVP_PKEY* key) {
    // The library pads what it hands out to the size of the room it gets: eight octets, which hold nearly every
    // exponent, cost a hundredth of what it would provide itself.
    std::uint64_t small = 0;
    std::array<OSSL_PARAM, 2> wanted = {
        OSSL_PARAM_construct_BN(OSSL_PKEY_PARAM_RSA_E, reinterpret_cast<unsigned char*>(&small), sizeof small),
        OSSL_PARAM_construct_end()};
    if (EVP_PKEY_get_params(key, wanted.data()) == 1 && OSSL_PARAM_modified(wanted.data()) == 1)
        return small % 2 == 0 || small == 1;
    DrainErrorQueue();
    BIGNUM* read = nullptr;
    const bool known = EVP_PKEY_get_bn_param(key, OSSL_PKEY_PARAM_RSA_E, &read) == 1;
    const Owned<BIGNUM, BN_free> exponent(read);
    return !known || BN_is_one(exponent.get()) || !BN_is_odd(exponent.get());
}

bool HasBreakableKey(const CertificateContext& certificate) {
    X509* native = NativeOf(certificate);
    const EVP_PKEY* key = native ? X509_get0_pubkey(native) : nullptr;
    if (!key) return false;
    switch (EVP_PKEY_get_base_id(key)) {
        case EVP_PKEY_RSA:
        case EVP_PKEY_RSA_PSS:
            return EVP_PKEY_get_bits(key) < kMinFactoringBits || HasUselessExponent(key);
        case EVP_PKEY_DSA:
            return EVP_PKEY_get_bits(key) < kMinFactoringBits;
        default:
            return false;
    }
}

bool HasBreakableDigest(const CertificateContext& certificate) {
    X509* native = NativeOf(certificate);
    int strength = 0;
    if (!native || X509_get_signature_info(native, nullptr, nullptr, &strength, nullptr) != 1) return false;
    return strength > 0 && strength < kMinDigestStrength;
}

}  // namespace platform::posix

#include "platform/posix/SignatureFacts.h"

#include <openssl/core_names.h>
#include <openssl/params.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <mutex>
#include <unordered_map>

#include "platform/Hash.h"
#include "platform/posix/Ber.h"
#include "platform/posix/Native.h"

namespace platform::posix {
namespace {

constexpr std::size_t kMaxFacts = 4096;
constexpr int kMinFactoringBits = 1000;
constexpr int kMinCurveBits = 160;  // of the group's order: as hard as factoring the above
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

// The algorithms of nearly all certificates (RFC 4055, 5; RFC 5758, 3.2): those that say all by their name.
struct NamedScheme {
    std::string_view oid;
    SignatureScheme::Kind kind;
    HashAlgorithm hash;
};
constexpr auto kNamedSchemes =
    std::to_array<NamedScheme>({{"1.2.840.113549.1.1.5", SignatureScheme::Kind::rsaPkcs1, HashAlgorithm::sha1},
                                {"1.2.840.113549.1.1.11", SignatureScheme::Kind::rsaPkcs1, HashAlgorithm::sha256},
                                {"1.2.840.113549.1.1.12", SignatureScheme::Kind::rsaPkcs1, HashAlgorithm::sha384},
                                {"1.2.840.113549.1.1.13", SignatureScheme::Kind::rsaPkcs1, HashAlgorithm::sha512},
                                {"1.2.840.10045.4.3.2", SignatureScheme::Kind::ecdsa, HashAlgorithm::sha256},
                                {"1.2.840.10045.4.3.3", SignatureScheme::Kind::ecdsa, HashAlgorithm::sha384},
                                {"1.2.840.10045.4.3.4", SignatureScheme::Kind::ecdsa, HashAlgorithm::sha512}});

const NamedScheme* SchemeOf(const CERT_INFO& info) {
    const auto found = std::ranges::find(kNamedSchemes, info.SignatureAlgorithm, &NamedScheme::oid);
    if (found == kNamedSchemes.end()) return nullptr;
    constexpr std::array<std::uint8_t, 2> kNull{0x05, 0x00};
    const bool wantsNull = found->kind == SignatureScheme::Kind::rsaPkcs1;
    const bool fits =
        wantsNull ? std::ranges::equal(info.SignatureParameters, kNull) : info.SignatureParameters.empty();
    return fits ? &*found : nullptr;
}

// The parts of a certificate that its signature is about (RFC 5280, 4.1.1).
struct SignedParts {
    ByteView toBeSigned, signature;
};

// Empty also if the algorithm inside is not, byte for byte, the one outside, which nobody signs.
std::optional<SignedParts> SignedPartsOf(ByteView encoded) {
    const auto certificate = ReadSingleElement(encoded, kBerSequence);
    if (!certificate) return std::nullopt;
    BerReader fields(certificate->content);
    const auto toBeSigned = fields.Next(kBerSequence);
    const auto outer = toBeSigned ? fields.Next(kBerSequence) : std::nullopt;
    const auto signature = outer ? fields.Next(kBerBitString) : std::nullopt;
    if (!signature || !fields.AtEnd() || signature->content.empty() || signature->content[0] != 0) return std::nullopt;
    BerReader inside(toBeSigned->content);
    if (inside.NextIs(BerContext(0)) && !inside.Next()) return std::nullopt;
    const auto inner = inside.Next(kBerInteger) ? inside.Next(kBerSequence) : std::nullopt;
    if (!inner || !std::ranges::equal(inner->whole, outer->whole)) return std::nullopt;
    return SignedParts{toBeSigned->whole, signature->content.subspan(1)};
}

// What is unusual is left to the crypto library, whole.
bool VerifiesInLibrary(const CertificateContext& certificate, EVP_PKEY* key) {
    const X509Ptr native = DecodeWithKey(certificate);
    const bool isSigned = native && X509_verify(native.get(), key) == 1;
    DrainErrorQueue();
    return isSigned;
}

bool Verifies(const CertificateContext& certificate, const CertificateContext& issuer) {
    EVP_PKEY* key = PublicKeyOf(issuer);
    if (!key || !NativeOf(certificate)) return false;
    const NamedScheme* scheme = SchemeOf(certificate.Info());
    const auto parts = scheme ? SignedPartsOf(certificate.Encoded()) : std::nullopt;
    if (!parts) return VerifiesInLibrary(certificate, key);
    return CryptVerifySignature(issuer, {.kind = scheme->kind, .hash = scheme->hash},
                                Digest(scheme->hash, parts->toBeSigned), parts->signature);
}

}  // namespace

bool IsSignedBy(const CertificateContext& certificate, const CertificateContext& issuer) {
    static FactTable table;
    const auto subjectPrint = FingerprintOf(certificate);
    const auto issuerPrint = FingerprintOf(issuer);
    if (!subjectPrint || !issuerPrint) return false;
    const Pair pair{*subjectPrint, *issuerPrint};
    if (const auto known = table.Find(pair)) return *known;

    const bool isSigned = Verifies(certificate, issuer);
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
    const EVP_PKEY* key = PublicKeyOf(certificate);
    if (!key) return false;
    switch (EVP_PKEY_get_base_id(key)) {
        case EVP_PKEY_RSA:
        case EVP_PKEY_RSA_PSS:
            return EVP_PKEY_get_bits(key) < kMinFactoringBits || HasUselessExponent(key);
        case EVP_PKEY_DSA:
            return EVP_PKEY_get_bits(key) < kMinFactoringBits;
        case EVP_PKEY_EC:
            return EVP_PKEY_get_bits(key) < kMinCurveBits;
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

bool IsBreakableDigest(const X509_ALGOR* signatureAlgorithm) {
    const ASN1_OBJECT* algorithm = nullptr;
    int kind = V_ASN1_UNDEF, digest = NID_undef;
    const void* value = nullptr;
    X509_ALGOR_get0(&algorithm, &kind, &value, signatureAlgorithm);
    if (OBJ_obj2nid(algorithm) == NID_rsassaPss && kind == V_ASN1_SEQUENCE) {
        const auto* der = static_cast<const ASN1_STRING*>(value);
        const Owned<RSA_PSS_PARAMS, RSA_PSS_PARAMS_free> parameters(
            static_cast<RSA_PSS_PARAMS*>(ASN1_item_unpack(der, ASN1_ITEM_rptr(RSA_PSS_PARAMS))));
        if (parameters && parameters->hashAlgorithm) digest = OBJ_obj2nid(parameters->hashAlgorithm->algorithm);
        DrainErrorQueue();
    } else {
        OBJ_find_sigid_algs(OBJ_obj2nid(algorithm), &digest, nullptr);
    }
    return digest == NID_md5 || digest == NID_md4 || digest == NID_md2;
}

}  // namespace platform::posix

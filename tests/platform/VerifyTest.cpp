#include <gtest/gtest.h>
#include <openssl/core_names.h>
#include <openssl/param_build.h>
#include <openssl/rsa.h>

#include <algorithm>

#include "platform/Keys.h"
#include "platform/posix/OpenSsl.h"
#include "platform/posix/SoftwareKey.h"
#include "tests/support/Pki.h"

namespace {

using namespace platform;
using tests::Key;
using tests::KeyType;
using Kind = SignatureScheme::Kind;

const Bytes kContent = {'N', 'o', 'r', 'v', 'i', 'k'};

// The crypto library's own way from content to signature, which shares no step with ours.
Bytes SignContent(const Key& key, const SignatureScheme& scheme) {
    EVP_MD_CTX* context = EVP_MD_CTX_new();
    EVP_PKEY_CTX* parameters = nullptr;
    const std::string hash(NameOf(scheme.hash)), mgf1(NameOf(scheme.mgf1Hash));
    Bytes signature(1024);
    std::size_t size = signature.size();
    bool good = EVP_DigestSignInit(context, &parameters, EVP_get_digestbyname(hash.c_str()), nullptr, key.get()) == 1;
    if (scheme.kind == Kind::rsaPss)
        good = good && EVP_PKEY_CTX_set_rsa_padding(parameters, RSA_PKCS1_PSS_PADDING) == 1 &&
               EVP_PKEY_CTX_set_rsa_mgf1_md(parameters, EVP_get_digestbyname(mgf1.c_str())) == 1 &&
               EVP_PKEY_CTX_set_rsa_pss_saltlen(parameters, static_cast<int>(scheme.saltLength)) == 1;
    good = good && EVP_DigestSign(context, signature.data(), &size, kContent.data(), kContent.size()) == 1;
    EVP_MD_CTX_free(context);
    if (!good) throw std::runtime_error("cannot sign: " + posix::DrainErrorQueue());
    signature.resize(size);
    return signature;
}

// PKCS#1 v1.5 padding around any bytes at all.
Bytes SignBytes(const Key& key, ByteView input) {
    EVP_PKEY_CTX* context = EVP_PKEY_CTX_new(key.get(), nullptr);
    Bytes signature(1024);
    std::size_t size = signature.size();
    const bool good = EVP_PKEY_sign_init(context) == 1 &&
                      EVP_PKEY_CTX_set_rsa_padding(context, RSA_PKCS1_PADDING) == 1 &&
                      EVP_PKEY_sign(context, signature.data(), &size, input.data(), input.size()) == 1;
    EVP_PKEY_CTX_free(context);
    if (!good) throw std::runtime_error("cannot sign: " + posix::DrainErrorQueue());
    signature.resize(size);
    return signature;
}

Bytes PublicKeyInfoOf(const Key& key) {
    return posix::EncodeDer<i2d_PUBKEY>(key.get());
}

struct VerifyCase {
    const char* name;
    KeyType key;
    SignatureScheme scheme;
};
void PrintTo(const VerifyCase& value, std::ostream* out) {
    *out << value.name;
}

class VerifyScheme : public testing::TestWithParam<VerifyCase> {};

TEST_P(VerifyScheme, AcceptsTheSignatureAndNothingNearIt) {
    const auto& [name, type, scheme] = GetParam();
    const Key key = tests::TestKey(type);
    const Bytes info = PublicKeyInfoOf(key);
    const Bytes digest = Digest(scheme.hash, kContent);
    const Bytes signature = SignContent(key, scheme);

    // A certificate remembers what its key verified: that must not cover for anything else.
    const auto certificate = CertCreateCertificateContext(tests::Issue({.key = key}).Der());
    EXPECT_TRUE(CryptVerifySignature(info, scheme, digest, signature));

    const auto refused = [&](const SignatureScheme& with, const Bytes& over, const Bytes& value, const char* what) {
        SetLastError(ERROR_SUCCESS);
        EXPECT_FALSE(CryptVerifySignature(info, with, over, value)) << what;
        EXPECT_EQ(GetLastError(), NTE_BAD_SIGNATURE) << what;
        EXPECT_TRUE(CryptVerifySignature(certificate, scheme, digest, signature)) << what;
        EXPECT_FALSE(CryptVerifySignature(certificate, with, over, value)) << what;
    };
    for (const std::size_t position : {std::size_t{0}, signature.size() / 2, signature.size() - 1}) {
        Bytes changed = signature;
        changed[position] ^= 0x01;
        refused(scheme, digest, changed, "one bit of the signature");
    }
    Bytes changed = digest;
    changed.front() ^= 0x80;
    refused(scheme, changed, signature, "one bit of the digest");
    refused(scheme, Bytes(digest.begin(), digest.end() - 1), signature, "a digest cut short");
    refused(scheme, digest, Bytes(signature.begin(), signature.end() - 1), "a signature cut short");
    Bytes longer = signature;
    longer.push_back(0);
    refused(scheme, digest, longer, "a byte behind the signature");
    refused(scheme, digest, {}, "no signature");
    refused(scheme, {}, signature, "no digest");

    const Bytes other = PublicKeyInfoOf(tests::TestKey(type, 1));
    EXPECT_FALSE(CryptVerifySignature(other, scheme, digest, signature));
    EXPECT_EQ(GetLastError(), NTE_BAD_SIGNATURE);
}

INSTANTIATE_TEST_SUITE_P(
    Schemes, VerifyScheme,
    testing::Values(
        VerifyCase{"RsaSha1", KeyType::rsa2048, {Kind::rsaPkcs1, HashAlgorithm::sha1}},
        VerifyCase{"RsaSha256", KeyType::rsa3072, {Kind::rsaPkcs1, HashAlgorithm::sha256}},
        VerifyCase{"RsaMd5", KeyType::rsa2048, {Kind::rsaPkcs1, HashAlgorithm::md5}},
        VerifyCase{"RsaSha512", KeyType::rsa2048, {Kind::rsaPkcs1, HashAlgorithm::sha512}},
        VerifyCase{"RsaSha3", KeyType::rsa2048, {Kind::rsaPkcs1, HashAlgorithm::sha3_256}},
        VerifyCase{"Pss", KeyType::rsa2048, {Kind::rsaPss}},
        VerifyCase{"PssMixed", KeyType::rsa2048, {Kind::rsaPss, HashAlgorithm::sha384, HashAlgorithm::sha1, 20}},
        VerifyCase{"PssNoSalt", KeyType::rsa2048, {Kind::rsaPss, HashAlgorithm::sha256, HashAlgorithm::sha256, 0}},
        VerifyCase{"EcdsaP256", KeyType::p256, {Kind::ecdsa, HashAlgorithm::sha256}},
        VerifyCase{"EcdsaP256Sha512", KeyType::p256, {Kind::ecdsa, HashAlgorithm::sha512}},
        VerifyCase{"EcdsaP384", KeyType::p384, {Kind::ecdsa, HashAlgorithm::sha384}},
        VerifyCase{"Dsa", KeyType::dsa2048, {Kind::dsa, HashAlgorithm::sha256}}),
    [](const auto& info) { return std::string(info.param.name); });

TEST(Verify, TakesDigestInfoWithoutParametersButNothingElseThanDigestInfo) {
    const Key key = tests::TestKey(KeyType::rsa2048);
    const Bytes info = PublicKeyInfoOf(key);
    const SignatureScheme scheme{.kind = Kind::rsaPkcs1, .hash = HashAlgorithm::sha256};
    const Bytes digest = Digest(scheme.hash, kContent);
    const Bytes usual = posix::DigestInfo(scheme.hash, digest);

    EXPECT_TRUE(CryptVerifySignature(info, scheme, digest, SignBytes(key, usual)));
    EXPECT_TRUE(
        CryptVerifySignature(info, scheme, digest, SignBytes(key, posix::DigestInfo(scheme.hash, digest, false))));

    Bytes trailing = usual;
    trailing.resize(usual.size() + 64);
    EXPECT_FALSE(CryptVerifySignature(info, scheme, digest, SignBytes(key, trailing)));
    EXPECT_FALSE(CryptVerifySignature(info, scheme, digest, SignBytes(key, digest)));
    // The same digest bytes, declared as of another algorithm of the same length.
    EXPECT_FALSE(
        CryptVerifySignature(info, scheme, digest, SignBytes(key, posix::DigestInfo(HashAlgorithm::sha3_256, digest))));
}

// A public key with this modulus' size and exponent; nobody needs the private one.
Key RsaKeyWithExponent(unsigned long exponent) {
    const Key usual = tests::TestKey(KeyType::rsa2048);
    BIGNUM* modulus = nullptr;
    EVP_PKEY_get_bn_param(usual.get(), OSSL_PKEY_PARAM_RSA_N, &modulus);
    BIGNUM* e = BN_new();
    BN_set_word(e, exponent);
    OSSL_PARAM_BLD* builder = OSSL_PARAM_BLD_new();
    OSSL_PARAM_BLD_push_BN(builder, OSSL_PKEY_PARAM_RSA_N, modulus);
    OSSL_PARAM_BLD_push_BN(builder, OSSL_PKEY_PARAM_RSA_E, e);
    OSSL_PARAM* parameters = OSSL_PARAM_BLD_to_param(builder);
    EVP_PKEY_CTX* context = EVP_PKEY_CTX_new_from_name(nullptr, "RSA", nullptr);
    EVP_PKEY* key = nullptr;
    const bool made =
        EVP_PKEY_fromdata_init(context) == 1 && EVP_PKEY_fromdata(context, &key, EVP_PKEY_PUBLIC_KEY, parameters) == 1;
    EVP_PKEY_CTX_free(context);
    OSSL_PARAM_free(parameters);
    OSSL_PARAM_BLD_free(builder);
    BN_free(e);
    BN_free(modulus);
    if (!made) throw std::runtime_error("cannot make a key: " + posix::DrainErrorQueue());
    return Key(key, EVP_PKEY_free);
}

TEST(Verify, RefusesTheSignatureThatAnybodyCanWriteForExponentOne) {
    const Bytes info = PublicKeyInfoOf(RsaKeyWithExponent(1));
    const Bytes digest = Digest(HashAlgorithm::sha256, kContent);
    const Bytes digestInfo = posix::DigestInfo(HashAlgorithm::sha256, digest);
    Bytes padded(256, 0xFF);
    padded[0] = 0;
    padded[1] = 1;
    std::copy(digestInfo.rbegin(), digestInfo.rend(), padded.rbegin());
    padded[256 - digestInfo.size() - 1] = 0;
    EXPECT_FALSE(CryptVerifySignature(info, {.kind = Kind::rsaPkcs1}, digest, padded));
}

TEST(Verify, RefusesPssWithOtherParametersThanTold) {
    const Key key = tests::TestKey(KeyType::rsa2048);
    const Bytes info = PublicKeyInfoOf(key);
    const Bytes digest = Digest(HashAlgorithm::sha256, kContent);
    const SignatureScheme made{.kind = Kind::rsaPss};
    const Bytes signature = SignContent(key, made);
    ASSERT_TRUE(CryptVerifySignature(info, made, digest, signature));

    // The library reads some lengths as "whatever the signature has": none of ours may reach it as one of those.
    for (const std::size_t salt :
         {std::size_t{0}, std::size_t{31}, std::size_t{33}, std::size_t{5000}, static_cast<std::size_t>(-1),
          static_cast<std::size_t>(-2), std::size_t{0xFFFFFFFE}, std::size_t{0xFFFFFFFD}}) {
        SignatureScheme other = made;
        other.saltLength = salt;
        EXPECT_FALSE(CryptVerifySignature(info, other, digest, signature)) << salt;
    }
    SignatureScheme other = made;
    other.mgf1Hash = HashAlgorithm::sha1;
    EXPECT_FALSE(CryptVerifySignature(info, other, digest, signature));
}

TEST(Verify, TellsAKeyOfAnotherKindAndAKeyThatDoesNotDecode) {
    const Bytes digest = Digest(HashAlgorithm::sha256, kContent);
    const Bytes rsa = PublicKeyInfoOf(tests::TestKey(KeyType::rsa2048));
    const Bytes ec = PublicKeyInfoOf(tests::TestKey(KeyType::p256));
    const Bytes signature(256, 1);
    EXPECT_FALSE(CryptVerifySignature(ec, {.kind = Kind::rsaPkcs1}, digest, signature));
    EXPECT_EQ(GetLastError(), NTE_BAD_ALGID);
    EXPECT_FALSE(CryptVerifySignature(rsa, {.kind = Kind::dsa}, digest, signature));
    EXPECT_EQ(GetLastError(), NTE_BAD_ALGID);

    Bytes trailing = rsa;
    trailing.push_back(0);
    for (const Bytes& broken : {Bytes(), Bytes{0x30}, Bytes(rsa.begin(), rsa.end() - 1), trailing}) {
        EXPECT_FALSE(CryptVerifySignature(broken, {}, digest, signature));
        EXPECT_EQ(GetLastError(), CRYPT_E_BAD_ENCODE);
    }
    EXPECT_FALSE(CryptVerifySignature(CertificateContext(), {}, digest, signature));
    EXPECT_EQ(GetLastError(), ERROR_INVALID_PARAMETER);
}

}  // namespace

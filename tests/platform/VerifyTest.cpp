#include <gtest/gtest.h>
#include <openssl/rsa.h>

#include <algorithm>

#include "platform/Keys.h"
#include "platform/posix/OpenSsl.h"
#include "platform/posix/SoftwareKey.h"
#include "tests/platform/DerPieces.h"
#include "tests/support/LastError.h"
#include "tests/support/Pki.h"

namespace {

using namespace platform;
using tests::Key;
using tests::KeyType;
using Kind = SignatureScheme::Kind;

const Bytes kContent = {'N', 'o', 'r', 'v', 'i', 'k'};
const Bytes kDigest = Digest(HashAlgorithm::sha256, kContent);

// The crypto library's own way from content to signature, which shares no step with ours.
Bytes SignContent(const Key& key, const SignatureScheme& scheme) {
    const std::unique_ptr<EVP_MD_CTX, decltype(&EVP_MD_CTX_free)> context(EVP_MD_CTX_new(), EVP_MD_CTX_free);
    EVP_PKEY_CTX* parameters = nullptr;
    const auto md = [](HashAlgorithm hash) { return EVP_get_digestbyname(std::string(NameOf(hash)).c_str()); };
    Bytes signature(1024);
    std::size_t size = signature.size();
    bool good = EVP_DigestSignInit(context.get(), &parameters, md(scheme.hash), nullptr, key.get()) == 1;
    if (scheme.kind == Kind::rsaPss)
        good = good && EVP_PKEY_CTX_set_rsa_padding(parameters, RSA_PKCS1_PSS_PADDING) == 1 &&
               EVP_PKEY_CTX_set_rsa_mgf1_md(parameters, md(scheme.mgf1Hash)) == 1 &&
               EVP_PKEY_CTX_set_rsa_pss_saltlen(parameters, static_cast<int>(scheme.saltLength)) == 1;
    if (!good || EVP_DigestSign(context.get(), signature.data(), &size, kContent.data(), kContent.size()) != 1)
        throw std::runtime_error("cannot sign: " + posix::DrainErrorQueue());
    signature.resize(size);
    return signature;
}

// PKCS#1 v1.5 padding around any bytes at all.
Bytes SignBytes(const Key& key, ByteView input) {
    const std::unique_ptr<EVP_PKEY_CTX, decltype(&EVP_PKEY_CTX_free)> context(EVP_PKEY_CTX_new(key.get(), nullptr),
                                                                              EVP_PKEY_CTX_free);
    Bytes signature(1024);
    std::size_t size = signature.size();
    if (EVP_PKEY_sign_init(context.get()) != 1 || EVP_PKEY_CTX_set_rsa_padding(context.get(), RSA_PKCS1_PADDING) != 1 ||
        EVP_PKEY_sign(context.get(), signature.data(), &size, input.data(), input.size()) != 1)
        throw std::runtime_error("cannot sign: " + posix::DrainErrorQueue());
    signature.resize(size);
    return signature;
}

Bytes PublicKeyInfoOf(const Key& key) {
    return posix::EncodeDer<i2d_PUBKEY>(key.get());
}

TEST(Verify, AcceptsTheSignatureAndNothingNearIt) {
    const std::tuple<const char*, KeyType, SignatureScheme> cases[] = {
        {"RSA SHA-1", KeyType::rsa2048, {Kind::rsaPkcs1, HashAlgorithm::sha1}},
        {"RSA SHA-256", KeyType::rsa3072, {Kind::rsaPkcs1, HashAlgorithm::sha256}},
        {"RSA MD5", KeyType::rsa2048, {Kind::rsaPkcs1, HashAlgorithm::md5}},
        {"RSA SHA-512", KeyType::rsa2048, {Kind::rsaPkcs1, HashAlgorithm::sha512}},
        {"RSA SHA-3", KeyType::rsa2048, {Kind::rsaPkcs1, HashAlgorithm::sha3_256}},
        {"PSS", KeyType::rsa2048, {Kind::rsaPss}},
        {"PSS mixed", KeyType::rsa2048, {Kind::rsaPss, HashAlgorithm::sha384, HashAlgorithm::sha1, 20}},
        {"PSS without salt", KeyType::rsa2048, {Kind::rsaPss, HashAlgorithm::sha256, HashAlgorithm::sha256, 0}},
        {"P-256", KeyType::p256, {Kind::ecdsa, HashAlgorithm::sha256}},
        {"P-256 SHA-512", KeyType::p256, {Kind::ecdsa, HashAlgorithm::sha512}},
        {"P-384", KeyType::p384, {Kind::ecdsa, HashAlgorithm::sha384}},
        {"DSA", KeyType::dsa2048, {Kind::dsa, HashAlgorithm::sha256}},
    };
    for (const auto& [name, type, scheme] : cases) {
        SCOPED_TRACE(name);
        const Bytes info = PublicKeyInfoOf(tests::TestKey(type)), other = PublicKeyInfoOf(tests::TestKey(type, 1));
        const Bytes digest = Digest(scheme.hash, kContent), signature = SignContent(tests::TestKey(type), scheme);
        EXPECT_TRUE(CryptVerifySignature(info, scheme, digest, signature));

        // A certificate remembers what its key verified: that must not cover for anything else.
        const auto certificate = CertCreateCertificateContext(tests::Issue({.key = tests::TestKey(type)}).Der());
        const auto refused = [&, &scheme = scheme](const Bytes& over, const Bytes& value, const char* what) {
            EXPECT_FAILS(CryptVerifySignature(info, scheme, over, value), NTE_BAD_SIGNATURE) << what;
            EXPECT_TRUE(CryptVerifySignature(certificate, scheme, digest, signature)) << what;
            EXPECT_FALSE(CryptVerifySignature(certificate, scheme, over, value)) << what;
        };
        for (const std::size_t position : {std::size_t{0}, signature.size() / 2, signature.size() - 1}) {
            Bytes changed = signature;
            changed[position] ^= 0x01;
            refused(digest, changed, "one bit of the signature");
        }
        Bytes changed = digest, longer = signature;
        changed.front() ^= 0x80;
        longer.push_back(0);
        refused(changed, signature, "one bit of the digest");
        refused(Bytes(digest.begin(), digest.end() - 1), signature, "a digest cut short");
        refused(digest, Bytes(signature.begin(), signature.end() - 1), "a signature cut short");
        refused(digest, longer, "a byte behind the signature");
        refused(digest, {}, "no signature");
        refused({}, signature, "no digest");
        EXPECT_FAILS(CryptVerifySignature(other, scheme, digest, signature), NTE_BAD_SIGNATURE);
    }
}

TEST(Verify, TakesDigestInfoWithoutParametersButNothingElseThanDigestInfo) {
    const Key key = tests::TestKey(KeyType::rsa2048);
    const auto accepts = [&](const Bytes& padded) {
        return CryptVerifySignature(PublicKeyInfoOf(key), {.kind = Kind::rsaPkcs1}, kDigest, SignBytes(key, padded));
    };
    const Bytes usual = posix::DigestInfo(HashAlgorithm::sha256, kDigest);
    EXPECT_TRUE(accepts(usual));
    EXPECT_TRUE(accepts(posix::DigestInfo(HashAlgorithm::sha256, kDigest, false)));
    EXPECT_FALSE(accepts(tests::Joined({usual, Bytes(64)})));
    EXPECT_FALSE(accepts(kDigest));
    // The same digest bytes, declared as of another algorithm of the same length.
    EXPECT_FALSE(accepts(posix::DigestInfo(HashAlgorithm::sha3_256, kDigest)));
}

TEST(Verify, RefusesTheSignatureThatAnybodyCanWriteForExponentOne) {
    DerWriter key, info;  // nobody needs the private one
    key.Sequence([&] { key.UnsignedInteger(Bytes(256, 0xC1)).Integer(1); });
    info.Sequence([&] {
        info.AlgorithmWithNull("1.2.840.113549.1.1.1").Value(tag::kBitString, tests::Joined({{0}, CopyOf(key.View())}));
    });
    const Bytes digestInfo = posix::DigestInfo(HashAlgorithm::sha256, kDigest);
    const Bytes padded = tests::Joined({{0, 1}, Bytes(256 - 3 - digestInfo.size(), 0xFF), {0}, digestInfo});
    EXPECT_FALSE(CryptVerifySignature(info.View(), {.kind = Kind::rsaPkcs1}, kDigest, padded));
}

TEST(Verify, RefusesPssWithOtherParametersThanTold) {
    const Key key = tests::TestKey(KeyType::rsa2048);
    const SignatureScheme made{.kind = Kind::rsaPss};
    const Bytes info = PublicKeyInfoOf(key), signature = SignContent(key, made);
    ASSERT_TRUE(CryptVerifySignature(info, made, kDigest, signature));

    // The library reads some lengths as "whatever the signature has": none of ours may reach it as one of those.
    SignatureScheme other = made;
    for (const std::size_t salt :
         {std::size_t{0}, std::size_t{31}, std::size_t{33}, std::size_t{5000}, static_cast<std::size_t>(-1),
          static_cast<std::size_t>(-2), std::size_t{0xFFFFFFFE}, std::size_t{0xFFFFFFFD}}) {
        other.saltLength = salt;
        EXPECT_FALSE(CryptVerifySignature(info, other, kDigest, signature)) << salt;
    }
    other = made;
    other.mgf1Hash = HashAlgorithm::sha1;
    EXPECT_FALSE(CryptVerifySignature(info, other, kDigest, signature));
}

TEST(Verify, TellsAKeyOfAnotherKindAndAKeyThatDoesNotDecode) {
    const Bytes rsa = PublicKeyInfoOf(tests::TestKey(KeyType::rsa2048)),
                ec = PublicKeyInfoOf(tests::TestKey(KeyType::p256)), signature(256, 1);
    EXPECT_FAILS(CryptVerifySignature(ec, {.kind = Kind::rsaPkcs1}, kDigest, signature), NTE_BAD_ALGID);
    EXPECT_FAILS(CryptVerifySignature(rsa, {.kind = Kind::dsa}, kDigest, signature), NTE_BAD_ALGID);
    for (const Bytes& broken : {Bytes(), Bytes{0x30}, Bytes(rsa.begin(), rsa.end() - 1), tests::Joined({rsa, {0}})})
        EXPECT_FAILS(CryptVerifySignature(broken, {}, kDigest, signature), CRYPT_E_BAD_ENCODE);
    EXPECT_FAILS(CryptVerifySignature(CertificateContext(), {}, kDigest, signature), ERROR_INVALID_PARAMETER);
}

}  // namespace

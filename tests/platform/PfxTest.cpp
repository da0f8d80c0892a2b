#include <gtest/gtest.h>
#include <openssl/provider.h>

#include <algorithm>
#include <filesystem>

#include "platform/Keys.h"
#include "platform/Stores.h"
#include "platform/Text.h"
#include "platform/posix/Native.h"
#include "tests/support/Pki.h"
#include "tests/support/Process.h"

namespace {

using namespace platform;
using tests::Certificate;
using tests::KeyType;
using tests::PfxCipher;

Certificate Make(const std::string& name, unsigned key = 0) {
    return tests::Issue({.subject = {{"CN", name}}, .key = tests::TestKey(KeyType::p256, key)});
}

CertStore Import(ByteView pfx, const std::string& password) {
    return PFXImportCertStore(pfx, Secret(password));
}

// Whether the key that came with the certificate makes signatures that the certificate verifies.
bool Signs(const CertificateContext& certificate) {
    const auto acquired = CryptAcquireCertificatePrivateKey(certificate, CRYPT_ACQUIRE_COMPARE_KEY_FLAG);
    if (!acquired) return false;
    const Bytes digest(32, 7);
    const Bytes signature = NCryptSignHash(acquired->key, HashAlgorithm::sha256, digest);
    const auto kind =
        acquired->key.Algorithm() == KeyAlgorithm::rsa ? SignatureScheme::Kind::rsaPkcs1 : SignatureScheme::Kind::ecdsa;
    return CryptVerifySignature(certificate, {.kind = kind}, digest, signature);
}

std::string AsCharacters(const std::string& octets) {
    std::u16string text;
    for (const char c : octets)
        text += static_cast<char16_t>(static_cast<unsigned char>(c));
    return ToUtf8(text);
}

TEST(Pfx, OpensWithEveryCipherAndPassword) {
    const auto certificate = Make("Иван");
    for (const auto cipher : {PfxCipher::none, PfxCipher::aes256, PfxCipher::des3, PfxCipher::rc2_40}) {
        for (const std::string password : {"", "pass", "парола", "Hello, 世界 😀", "M\xC3\xBCller"}) {
            const Bytes pfx = tests::MakePfx({.certificates = {certificate}, .password = password, .cipher = cipher});
            EXPECT_TRUE(PFXIsPFXBlob(pfx));
            const auto store = Import(pfx, password);
            ASSERT_TRUE(store) << password << " " << std::hex << GetLastError();
            const auto listed = CertEnumCertificatesInStore(store);
            ASSERT_EQ(listed.size(), 1U);
            EXPECT_EQ(CopyOf(listed[0].Encoded()), certificate.Der());
            EXPECT_TRUE(Signs(listed[0]));
            EXPECT_FALSE(Import(pfx, password + "x"));
            EXPECT_EQ(GetLastError(), ERROR_INVALID_PASSWORD) << password;
        }
    }
    EXPECT_EQ(OSSL_PROVIDER_available(nullptr, "legacy"), 0) << "old algorithms are now open to the whole process";
}

// Programs that knew no UTF-8 took the octets of the user's locale for characters.
TEST(Pfx, PasswordsOfProgramsWithoutUnicodeAreTried) {
    const auto certificate = Make("x");
    const std::string utf8 = "парола", local = "\xEF\xE0\xF0\xEE\xEB\xE0";
    for (const std::string& form : {AsCharacters(utf8), AsCharacters(local)}) {
        const Bytes pfx =
            tests::MakePfx({.certificates = {certificate}, .password = form, .cipher = PfxCipher::rc2_40});
        const auto store = Import(pfx, utf8);
        ASSERT_TRUE(store);
        EXPECT_TRUE(Signs(CertEnumCertificatesInStore(store).at(0)));
    }
}

TEST(Pfx, KeysGoToTheCertificatesThatHaveTheirPublicKey) {
    const auto signer = Make("signer"), renewed = Make("renewed"), other = Make("other", 1);
    const auto rsa = tests::Issue({.subject = {{"CN", "rsa"}}, .key = tests::TestKey(KeyType::rsa2048)});
    const Certificate authority(Make("authority", 2).Der());  // comes without its key
    const Certificate mixedUp(Make("mixed up", 3).Der(), tests::TestKey(KeyType::p256, 4));
    const Bytes pfx =
        tests::MakePfx({.certificates = {authority, Certificate(renewed.Der()), other, rsa, signer, mixedUp},
                        .password = "p",
                        .friendlyName = "Моят ключ"});
    const auto store = Import(pfx, "p");
    ASSERT_TRUE(store);
    const auto find = [&](const Certificate& certificate) {
        const auto found = CertFindBySha1(store, posix::Sha1Of(CertCreateCertificateContext(certificate.Der())));
        EXPECT_TRUE(found);
        return found;
    };
    for (const auto& certificate : {signer, renewed, other, rsa})
        EXPECT_TRUE(Signs(find(certificate)));
    EXPECT_FALSE(CertHasPrivateKey(find(authority)));
    EXPECT_FALSE(CertHasPrivateKey(find(mixedUp))) << "a key of another public key was bound";
    const auto name = CertGetCertificateContextProperty(find(signer), CERT_FRIENDLY_NAME_PROP_ID);
    ASSERT_TRUE(name);
    std::u16string text;
    for (std::size_t i = 0; i + 1 < name->size(); i += 2)
        text += static_cast<char16_t>((*name)[i] | (*name)[i + 1] << 8);
    EXPECT_EQ(text, std::u16string(u"Моят ключ\0", 10));
    EXPECT_FALSE(CertGetCertificateContextProperty(find(authority), CERT_FRIENDLY_NAME_PROP_ID));
}

TEST(Pfx, WhatIsImportedGoesIntoTheUsersStoreWithItsKeys) {
    const tests::Profile profile;
    const auto signer = Make("signer");
    const auto store = Import(tests::MakePfx({.certificates = {signer, Certificate(Make("ca", 1).Der())}}), "");
    const auto mine = CertOpenSystemStoreAt(StoreLocation::currentUser, u"MY", false);
    for (const auto& certificate : CertEnumCertificatesInStore(store))
        ASSERT_TRUE(CertAddCertificateContextToStore(mine, certificate, CERT_STORE_ADD_REPLACE_EXISTING));
    int keyed = 0;
    for (const auto& certificate : CertEnumCertificatesInStore(mine))
        keyed += Signs(certificate) ? 1 : 0;
    EXPECT_EQ(CertEnumCertificatesInStore(mine).size(), 2U);
    EXPECT_EQ(keyed, 1);
}

TEST(Pfx, DamageIsNeitherAcceptedNorTakenForAWrongPassword) {
    const auto certificate = Make("x");
    const Bytes pfx = tests::MakePfx({.certificates = {certificate}, .password = "p", .cipher = PfxCipher::none});
    for (std::size_t size = 0; size < pfx.size(); ++size) {
        ASSERT_FALSE(Import(ByteView(pfx).first(size), "p"));
        ASSERT_EQ(GetLastError(), CRYPT_E_BAD_ENCODE) << size;
        ASSERT_FALSE(PFXIsPFXBlob(ByteView(pfx).first(size)));
    }
    EXPECT_FALSE(Import(certificate.Der(), "p"));
    EXPECT_EQ(GetLastError(), CRYPT_E_BAD_ENCODE);
    EXPECT_FALSE(PFXIsPFXBlob(certificate.Der()));
    // A changed byte either shows or changes nothing that comes out.
    for (std::size_t i = 0; i < pfx.size(); ++i) {
        Bytes damaged = pfx;
        damaged[i] ^= 0x01;
        SetLastError(0);
        const auto store = Import(damaged, "p");
        ASSERT_TRUE(store || GetLastError() != ERROR_SUCCESS) << i;
        if (!store) continue;
        const auto listed = CertEnumCertificatesInStore(store);
        ASSERT_EQ(listed.size(), 1U) << i;
        EXPECT_EQ(CopyOf(listed[0].Encoded()), certificate.Der()) << i;
        EXPECT_TRUE(Signs(listed[0])) << i;
    }
}

TEST(Pfx, EndlessWorkIsRefused) {
    Bytes pfx = tests::MakePfx({.certificates = {Make("x")}, .password = "p"});
    const Bytes iterations{0x02, 0x02, 0x08, 0x00};  // 2048, in the MAC and in each encrypted part
    const auto last = std::find_end(pfx.begin(), pfx.end(), iterations.begin(), iterations.end());
    ASSERT_NE(last, pfx.end());
    const auto at = static_cast<std::size_t>(last - pfx.begin());
    ASSERT_EQ(at + iterations.size(), pfx.size());
    // 2^31 - 1: two octets more, so the lengths around it grow by two. The MacData and the outer SEQUENCE are definite.
    pfx.resize(at);
    pfx.insert(pfx.end(), {0x02, 0x04, 0x7F, 0xFF, 0xFF, 0xFF});
    const Bytes macData{0x30, 0x41, 0x30, 0x31};  // SHA-256: SEQUENCE, its DigestInfo
    const auto mac = std::find_end(pfx.begin(), pfx.end(), macData.begin(), macData.end());
    ASSERT_NE(mac, pfx.end());
    mac[1] += 2;
    const unsigned total = (pfx[2] << 8 | pfx[3]) + 2U;
    pfx[2] = static_cast<std::uint8_t>(total >> 8);
    pfx[3] = static_cast<std::uint8_t>(total);
    ASSERT_TRUE(PFXIsPFXBlob(pfx));
    EXPECT_FALSE(Import(pfx, "p"));
    EXPECT_EQ(GetLastError(), NTE_BAD_ALGID);
}

TEST(Pfx, FilesOfOtherProgramsOpen) {
    const tests::Profile profile;
    const auto signer = tests::Issue({.subject = {{"CN", "Петър"}}, .key = tests::TestKey(KeyType::rsa2048)});
    const auto pem = profile.Write("signer.pem", signer.Pem()).string();
    const auto key = profile.Write("signer.key", signer.KeyPem()).string();
    const auto file = (profile.Folder() / "out.p12").string();
    const std::vector<std::vector<std::string>> commands = {
        {"openssl", "pkcs12", "-export", "-in", pem, "-inkey", key, "-out", file, "-passout", "pass:парола"},
        {"openssl", "pkcs12", "-export", "-legacy", "-in", pem, "-inkey", key, "-out", file, "-passout", "pass:парола"},
        {"openssl", "pkcs12", "-export", "-nomac", "-in", pem, "-inkey", key, "-out", file, "-passout", "pass:парола"},
        {"openssl",
         "pkcs12",
         "-export",
         "-in",
         pem,
         "-inkey",
         key,
         "-out",
         file,
         "-passout",
         "pass:парола",
         "-macalg",
         "sha512",
         "-keypbe",
         "PBE-SHA1-RC4-128",
         "-certpbe",
         "PBE-SHA1-RC2-128",
         "-provider",
         "legacy",
         "-provider",
         "default"},
        {"certtool", "--to-p12", "--outder", "--load-certificate", pem, "--load-privkey", key, "--p12-name", "п",
         "--password", "парола", "--outfile", file},
        {"certtool", "--to-p12", "--outder", "--load-certificate", pem, "--load-privkey", key, "--p12-name", "п",
         "--password", "парола", "--pkcs-cipher", "rc2-40", "--outfile", file},
    };
    for (const auto& command : commands) {
        if (!tests::HasProgram(command[0])) continue;
        const auto made = tests::RunProgram(command, {.environment = {{"LC_ALL", "C.UTF-8"}}});
        ASSERT_EQ(made.status, 0) << made.Summary();
        const std::string pfx = tests::ReadFile(file);
        const auto store = Import(AsBytes(pfx), "парола");
        ASSERT_TRUE(store) << made.Summary() << std::hex << GetLastError();
        const auto listed = CertEnumCertificatesInStore(store);
        ASSERT_EQ(listed.size(), 1U);
        EXPECT_TRUE(Signs(listed[0]));
        EXPECT_FALSE(Import(AsBytes(pfx), "parola"));
        EXPECT_EQ(GetLastError(), ERROR_INVALID_PASSWORD) << made.Summary();
    }
}

}  // namespace

#include <gtest/gtest.h>
#include <openssl/provider.h>

#include <algorithm>
#include <filesystem>
#include <map>

#include "platform/Keys.h"
#include "platform/Stores.h"
#include "platform/Text.h"
#include "platform/formats/Der.h"
#include "platform/formats/DerWriter.h"
#include "platform/posix/Native.h"
#include "tests/support/Corpora.h"
#include "tests/support/LastError.h"
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
            EXPECT_FAILS(Import(pfx, password + "x"), ERROR_INVALID_PASSWORD) << password;
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

TEST(Pfx, DamageIsNeitherAcceptedNorTakenForAWrongPassword) {
    const auto certificate = Make("x");
    const Bytes pfx = tests::MakePfx({.certificates = {certificate}, .password = "p", .cipher = PfxCipher::none});
    for (std::size_t size = 0; size < pfx.size(); ++size) {
        EXPECT_FAILS(Import(ByteView(pfx).first(size), "p"), CRYPT_E_BAD_ENCODE) << size;
        ASSERT_FALSE(PFXIsPFXBlob(ByteView(pfx).first(size)));
    }
    EXPECT_FAILS(Import(certificate.Der(), "p"), CRYPT_E_BAD_ENCODE);
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

// The encoding with one element replaced wherever it stands, also in octet strings that hold encodings.
Bytes Replaced(ByteView der, const Bytes& from, const Bytes& to) {
    DerWriter out;
    for (DerReader reader(der); !reader.AtEnd();) {
        const auto element = reader.Next();
        if (!element) return {};
        const bool nested = (element->tag & tag::kConstructed) != 0 || element->tag == tag::kOctetString;
        const Bytes inner = nested ? Replaced(element->contents, from, to) : Bytes();
        if (inner.empty()) {
            out.Raw(std::ranges::equal(element->encoded, from) ? ByteView(to) : element->encoded);
        } else {
            out.Value(element->tag, inner);
        }
    }
    return out.Take();
}

TEST(Pfx, EndlessWorkIsRefused) {
    const tests::Profile profile;
    const auto signer = Make("x");
    const auto pem = profile.Write("all.pem", signer.Pem() + signer.KeyPem());
    const auto peer = tests::RunProgram({"openssl", "pkcs12", "-export", "-nomac", "-in", pem, "-passout", "pass:p"});
    // 2048 iterations, in the MAC of the one and in the encrypted parts of the other, become 2^31 - 1.
    for (const Bytes& pfx : {tests::MakePfx({.certificates = {signer}, .password = "p", .cipher = PfxCipher::none}),
                             CopyOf(AsBytes(peer.output))}) {
        ASSERT_TRUE(Import(pfx, "p"));
        EXPECT_FAILS(Import(Replaced(pfx, {2, 2, 8, 0}, {2, 4, 0x7F, 0xFF, 0xFF, 0xFF}), "p"), NTE_BAD_ALGID);
    }
}

TEST(Pfx, FilesOfOtherProgramsOpen) {
    const tests::Profile profile;
    const auto signer = tests::Issue({.subject = {{"CN", "Петър"}}, .key = tests::TestKey(KeyType::rsa2048)});
    profile.Write("signer.pem", signer.Pem());
    profile.Write("signer.key", signer.KeyPem());
    const std::string openssl =
        "openssl pkcs12 -export -in signer.pem -inkey signer.key -out out -passout pass:парола ";
    const std::string certtool =
        "certtool --to-p12 --outder --load-certificate signer.pem --load-privkey signer.key "
        "--p12-name п --password парола --outfile out ";
    for (const std::string& command :
         {openssl, openssl + "-legacy", openssl + "-nomac",
          openssl + "-macalg sha512 -keypbe PBE-SHA1-RC4-128 -certpbe PBE-SHA1-RC2-128 -provider legacy -provider "
                    "default",
          certtool, certtool + "--pkcs-cipher rc2-40"}) {
        if (command.starts_with("certtool") && !tests::HasProgram("certtool")) continue;
        const auto made = tests::RunProgram({"sh", "-c", command},
                                            {.environment = {{"LC_ALL", "C.UTF-8"}}, .folder = profile.Folder()});
        ASSERT_EQ(made.status, 0) << made.Summary();
        const std::string pfx = tests::ReadFile(profile.Folder() / "out");
        const auto listed = CertEnumCertificatesInStore(Import(AsBytes(pfx), "парола"));
        ASSERT_EQ(listed.size(), 1U) << command;
        EXPECT_TRUE(Signs(listed[0]));
        EXPECT_FAILS(Import(AsBytes(pfx), "parola"), ERROR_INVALID_PASSWORD) << command;
    }
}

// --- Other makers' files with their INDEX ---

struct Sample {
    std::string file, content, opened, password;
    bool mustFail = false;
};
std::vector<Sample> ReadIndex() {
    std::vector<Sample> samples;
    for (const auto& row : tests::ReadTable(tests::Corpus("pkcs12") / "INDEX.tsv")) {
        if (row[0] == "path") continue;
        const std::string password = row[4].starts_with("pass:") ? row[4].substr(5) : "";
        samples.push_back(
            {row[0], tests::ReadFile(tests::Corpus("pkcs12") / row[0]), row[3], password, row[6] == "MUST FAIL"});
    }
    return samples;
}

// 0 when a store came out.
ErrorCode ErrorOf(const std::string& pfx, const std::string& password) {
    SetLastError(ERROR_SUCCESS);
    return Import(AsBytes(pfx), password) ? ERROR_SUCCESS : GetLastError();
}

// Where we answer otherwise than the program that made the index, and why, stands in tests/data/corpora.
TEST(PfxCorpus, AgreesWithTheIndexAndTellsAWrongPassword) {
    const auto samples = ReadIndex();
    if (samples.empty()) GTEST_SKIP() << "no corpus of PFX files";
    std::map<std::string, ErrorCode> known;
    for (const auto& row : tests::ReadTable(NORVIK_SOURCE_DIR "/tests/data/corpora/pkcs12.tsv"))
        known[row[0]] = static_cast<ErrorCode>(std::stoul(row[1], nullptr, 16));
    int opened = 0, refused = 0;
    for (const auto& [file, content, status, password, mustFail] : samples) {
        SCOPED_TRACE(file);
        if (mustFail) {
            EXPECT_NE(ErrorOf(content, password), ERROR_SUCCESS);
            ++refused;
        } else if (status == "unopened") {
            // Well-formed, and nobody told us the password, unless we know better.
            ErrorCode error = ERROR_INVALID_PASSWORD;
            for (const char* guess : {"", "1234", "password", "12345"})
                if (error == ERROR_INVALID_PASSWORD) error = ErrorOf(content, guess);
            EXPECT_EQ(error, known.contains(file) ? known[file] : ERROR_INVALID_PASSWORD);
        } else {
            EXPECT_EQ(ErrorOf(content, password), known.contains(file) ? known[file] : ERROR_SUCCESS);
            const bool withoutAnyPassword = file == "botan__key_cert_spki_mismatch.pfx";
            if (!known.contains(file) && status.starts_with("ok")) {
                EXPECT_EQ(ErrorOf(content, "not this one"),
                          withoutAnyPassword ? ERROR_SUCCESS : ERROR_INVALID_PASSWORD);
            }
            ++opened;
        }
    }
    EXPECT_GT(opened, 0);
    EXPECT_GT(refused, 0);
}

TEST(PfxCorpus, NoDamagedSeedOpensOrCrashes) {
    if (!std::filesystem::exists(tests::Corpus("fuzz"))) GTEST_SKIP() << "no corpus of damaged files";
    int tried = 0;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(tests::Corpus("fuzz"))) {
        if (!entry.is_regular_file()) continue;
        const std::string bytes = tests::ReadFile(entry.path());
        EXPECT_NE(ErrorOf(bytes, "password"), ERROR_SUCCESS) << entry.path();
        CertOpenBytesStore(AsBytes(bytes));
        ++tried;
    }
    EXPECT_GT(tried, 0);
}

}  // namespace

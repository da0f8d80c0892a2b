#include <gtest/gtest.h>
#include <openssl/provider.h>

#include <algorithm>
#include <map>

#include "platform/Keys.h"
#include "platform/Stores.h"
#include "platform/Text.h"
#include "platform/formats/Der.h"
#include "platform/formats/DerWriter.h"
#include "platform/posix/Native.h"
#include "tests/support/ChainWorld.h"
#include "tests/support/Corpora.h"
#include "tests/support/KeyUse.h"
#include "tests/support/LastError.h"
#include "tests/support/Process.h"

namespace {

using namespace platform;
using namespace tests;

Certificate Make(const std::string& name, unsigned key = 0) {
    return Issue({.subject = {{"CN", name}}, .key = TestKey(KeyType::p256, key)});
}
CertStore Import(ByteView pfx, const std::string& password) {
    return PFXImportCertStore(pfx, Secret(password));
}
// 0 when a store came out.
ErrorCode ErrorOf(std::string_view pfx, const std::string& password) {
    SetLastError(ERROR_SUCCESS);
    return FailureOf(Import(AsBytes(pfx), password));
}
// Whether the certificate stands alone in the store with a key that makes signatures which it verifies.
bool HoldsSigner(const CertStore& store, const Certificate& certificate) {
    const auto listed = store ? CertEnumCertificatesInStore(store) : std::vector<CertificateContext>();
    if (listed != std::vector{ContextOf(certificate)}) return false;
    const auto acquired = AcquireKey(listed[0]);
    return acquired && IsContentSignature(certificate, SignContent(acquired->key));
}

TEST(Pfx, OpensWithEveryCipherAndPassword) {
    const auto certificate = Make("Иван");
    for (const auto cipher : {PfxCipher::none, PfxCipher::aes256, PfxCipher::des3, PfxCipher::rc2_40}) {
        for (const std::string password : {"", "pass", "парола", "Hello, 世界 😀", "M\xC3\xBCller"}) {
            const Bytes pfx = MakePfx({.certificates = {certificate}, .password = password, .cipher = cipher});
            EXPECT_TRUE(PFXIsPFXBlob(pfx));
            EXPECT_TRUE(HoldsSigner(Import(pfx, password), certificate)) << password << std::hex << GetLastError();
            EXPECT_FAILS(Import(pfx, password + "x"), ERROR_INVALID_PASSWORD) << password;
        }
    }
    // Programs that knew no UTF-8 took the octets of the user's locale for characters: of парола in UTF-8 and 1251.
    for (const std::u16string form : {u"Ð¿Ð°Ñ\u0080Ð¾Ð»Ð°", u"ïàðîëà"}) {
        const Bytes pfx =
            MakePfx({.certificates = {certificate}, .password = ToUtf8(form), .cipher = PfxCipher::rc2_40});
        EXPECT_TRUE(HoldsSigner(Import(pfx, "парола"), certificate));
    }
    EXPECT_EQ(OSSL_PROVIDER_available(nullptr, "legacy"), 0) << "old algorithms are now open to the whole process";
}

TEST(Pfx, KeysGoToTheCertificatesThatHaveTheirPublicKey) {
    const auto signer = Make("signer"), renewed = Make("renewed"), other = Make("other", 1),
               rsa = Issue({.subject = {{"CN", "rsa"}}, .key = TestKey(KeyType::rsa2048)});
    const Certificate authority(Make("authority", 2).Der());  // comes without its key
    const Certificate mixedUp(Make("mixed up", 3).Der(), TestKey(KeyType::p256, 4));
    const auto store =
        Import(MakePfx({.certificates = {authority, Certificate(renewed.Der()), other, rsa, signer, mixedUp},
                        .password = "p",
                        .friendlyName = "Моят ключ"}),
               "p");
    ASSERT_TRUE(store);
    const auto find = [&](const Certificate& certificate) {
        return CertFindBySha1(store, posix::Sha1Of(ContextOf(certificate)));
    };
    for (const auto& each : {signer, renewed, other, rsa}) {
        const auto acquired = AcquireKey(find(each));
        EXPECT_TRUE(acquired && IsContentSignature(each, SignContent(acquired->key)));
    }
    EXPECT_TRUE(find(authority) && !CertHasPrivateKey(find(authority)));
    EXPECT_TRUE(find(mixedUp) && !CertHasPrivateKey(find(mixedUp))) << "a key of another public key was bound";
    const auto name = CertGetCertificateContextProperty(find(signer), CERT_FRIENDLY_NAME_PROP_ID);
    Bytes expected;
    for (const char16_t c : std::u16string(u"Моят ключ\0", 10))
        expected.insert(expected.end(), {static_cast<std::uint8_t>(c), static_cast<std::uint8_t>(c >> 8)});
    EXPECT_EQ(name, expected);
    EXPECT_FALSE(CertGetCertificateContextProperty(find(authority), CERT_FRIENDLY_NAME_PROP_ID));
}

TEST(Pfx, DamageIsNeitherAcceptedNorTakenForAWrongPassword) {
    const auto certificate = Make("x");
    const Bytes pfx = MakePfx({.certificates = {certificate}, .password = "p", .cipher = PfxCipher::none});
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
        SetLastError(ERROR_SUCCESS);
        const auto store = Import(damaged, "p");
        EXPECT_TRUE(store ? HoldsSigner(store, certificate) : GetLastError() != ERROR_SUCCESS) << i;
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
    const Profile profile;
    const auto signer = Make("x");
    const auto pem = profile.Write("all.pem", signer.Pem() + signer.KeyPem());
    const auto peer = RunProgram({"openssl", "pkcs12", "-export", "-nomac", "-in", pem, "-passout", "pass:p"});
    // 2048 iterations, in the MAC of the one and in the encrypted parts of the other, become 2^31 - 1.
    for (const Bytes& pfx : {MakePfx({.certificates = {signer}, .password = "p", .cipher = PfxCipher::none}),
                             CopyOf(AsBytes(peer.output))}) {
        ASSERT_TRUE(Import(pfx, "p"));
        EXPECT_FAILS(Import(Replaced(pfx, {2, 2, 8, 0}, {2, 4, 0x7F, 0xFF, 0xFF, 0xFF}), "p"), NTE_BAD_ALGID);
    }
}

TEST(Pfx, FilesOfOtherProgramsOpen) {
    const Profile profile;
    const auto signer = Issue({.subject = {{"CN", "Петър"}}, .key = TestKey(KeyType::rsa2048)});
    profile.Write("signer.pem", signer.Pem());
    profile.Write("signer.key", signer.KeyPem());
    const std::string openssl = "openssl pkcs12 -export -in signer.pem -inkey signer.key -passout pass:парола ",
                      certtool =
                          "certtool --to-p12 --outder --load-certificate signer.pem --load-privkey signer.key "
                          "--p12-name п --password парола ";
    for (const std::string& command :
         {openssl, openssl + "-legacy", openssl + "-nomac",
          openssl + "-macalg sha512 -keypbe PBE-SHA1-RC4-128 -certpbe PBE-SHA1-RC2-128 -provider legacy -provider "
                    "default",
          certtool, certtool + "--pkcs-cipher rc2-40"}) {
        if (command.starts_with("certtool") && !HasProgram("certtool")) continue;
        const auto made =
            RunProgram({"sh", "-c", command}, {.environment = {{"LC_ALL", "C.UTF-8"}}, .folder = profile.Folder()});
        ASSERT_EQ(made.status, 0) << made.Summary();
        EXPECT_TRUE(HoldsSigner(Import(AsBytes(made.output), "парола"), signer)) << command;
        EXPECT_EQ(ErrorOf(made.output, "parola"), ERROR_INVALID_PASSWORD) << command;
    }
}

// Other makers' files with their INDEX. Where we answer otherwise than the program that made it, and why, stands in
// tests/data/corpora.
TEST(PfxCorpus, AgreesWithTheIndexAndTellsAWrongPassword) {
    const auto index = ReadTable(Corpus("pkcs12") / "INDEX.tsv");
    if (index.empty()) GTEST_SKIP() << "no corpus of PFX files";
    std::map<std::string, ErrorCode> known;
    for (const auto& row : ReadTable(NORVIK_SOURCE_DIR "/tests/data/corpora/pkcs12.tsv"))
        known[row[0]] = static_cast<ErrorCode>(std::stoul(row[1], nullptr, 16));
    int opened = 0, refused = 0;
    for (const auto& row : index) {
        const std::string &file = row[0], &status = row[3];
        if (file == "path") continue;
        SCOPED_TRACE(file);
        const std::string password = row[4].starts_with("pass:") ? row[4].substr(5) : "",
                          content = ReadFile(Corpus("pkcs12") / file);
        const bool isKnown = known.contains(file);
        if (row[6] == "MUST FAIL") {
            EXPECT_NE(ErrorOf(content, password), ERROR_SUCCESS);
            ++refused;
        } else if (status == "unopened") {
            // Well-formed, and nobody told us the password, unless we know better.
            ErrorCode error = ERROR_INVALID_PASSWORD;
            for (const char* guess : {"", "1234", "password", "12345"})
                if (error == ERROR_INVALID_PASSWORD) error = ErrorOf(content, guess);
            EXPECT_EQ(error, isKnown ? known[file] : ERROR_INVALID_PASSWORD);
        } else {
            EXPECT_EQ(ErrorOf(content, password), isKnown ? known[file] : ERROR_SUCCESS);
            const bool withoutAnyPassword = file == "botan__key_cert_spki_mismatch.pfx";
            if (!isKnown && status.starts_with("ok")) {
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
    if (!std::filesystem::exists(Corpus("fuzz"))) GTEST_SKIP() << "no corpus of damaged files";
    int tried = 0;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(Corpus("fuzz"))) {
        if (!entry.is_regular_file()) continue;
        const std::string bytes = ReadFile(entry.path());
        EXPECT_NE(ErrorOf(bytes, "password"), ERROR_SUCCESS) << entry.path();
        CertOpenBytesStore(AsBytes(bytes));
        ++tried;
    }
    EXPECT_GT(tried, 0);
}

}  // namespace

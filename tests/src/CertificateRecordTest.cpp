
#include <gmock/gmock.h>

#include <algorithm>
#include <map>

#include "platform/Stores.h"
#include "platform/Text.h"
#include "src/certificates/Record.h"
#include "tests/support/Corpora.h"
#include "tests/support/PemFile.h"
#include "tests/support/Pki.h"
#include "tests/support/Process.h"
#include "toolkit/CkJsonArrayW.h"

namespace {

namespace fs = std::filesystem;
using namespace tests;
using Certificates = std::map<std::string, std::string>;  // DER, and where it was found first

std::vector<fs::path> FilesBelow(const fs::path& folder) {
    std::vector<fs::path> files;
    for (const auto& entry : fs::recursive_directory_iterator(folder))
        if (entry.is_regular_file()) files.push_back(entry.path());
    std::ranges::sort(files);
    return files;
}

Certificates AllCertificates() {
    Certificates found;
    const auto add = [&](const platform::CertStore& store, const fs::path& file) {
        if (!store) return;
        for (const auto& certificate : platform::CertEnumCertificatesInStore(store))
            found.try_emplace(std::string(platform::AsText(certificate.Encoded())), file.string());
    };
    for (const auto& file : FilesBelow(Corpus("chains")))
        for (const auto& block : ReadPemFile(file))
            if (block.label.find("CERTIFICATE") != std::string::npos)
                found.try_emplace(std::string(platform::AsText(block.der)), file.string());
    for (const auto* folder : {"fuzz/x509", "cms"})
        for (const auto& file : FilesBelow(Corpus(folder)))
            add(platform::CertOpenBytesStore(platform::AsBytes(ReadFile(file))), file);
    for (const auto& [file, password] : PfxCorpus())
        add(platform::PFXImportCertStore(platform::AsBytes(ReadFile(file)), platform::Secret(password)), file);
    return found;
}

// Compares every record that can be made; answers how many the other program could read.
std::size_t Compare(const Certificates& certificates) {
    Profile profile;
    profile.Set("TZ", "UTC");
    toolkit::CkJsonArrayW all;
    for (const auto& [der, where] : certificates) {
        const auto context = platform::CertCreateCertificateContext(platform::AsBytes(der));
        if (!context) continue;
        toolkit::CkJsonObjectW json;
        EXPECT_TRUE(certificates::FillRecord(context, json)) << where;
        json.UpdateString(u"where", platform::ToWide(where).c_str());
        profile.Write(std::to_string(all.Size()) + ".der", der);
        all.AddObjectCopyAt(-1, json);
    }
    all.put_EmitCompact(false);
    profile.Write("records.json", platform::ToUtf8(all.Emit()));
    const auto done = RunProgram({"python3", NORVIK_SOURCE_DIR "/tests/src/record_peers.py", profile.Folder()});
    EXPECT_EQ(done.errors, "");
    return done.status == 0 ? std::stoul(done.output) : 0;
}

TEST(CertificateRecord, OfEveryCertificateThatOthersMadeSaysWhatAnotherProgramReads) {
    if (!fs::exists(Corpus("chains"))) GTEST_SKIP() << "the collections are not beside the checkout";
    EXPECT_GT(Compare(AllCertificates()), 300U);
}

Key KeyOf(const char* type, const char* parameter = nullptr) {
    return {EVP_PKEY_Q_keygen(nullptr, nullptr, type, parameter), EVP_PKEY_free};
}
Key RsaOf(std::size_t bits) {
    return {EVP_PKEY_Q_keygen(nullptr, nullptr, "RSA", bits), EVP_PKEY_free};
}

// Names, numbers, moments, keys and lists that authorities use and the collections have too few of.
TEST(CertificateRecord, OfOddOnesDoesToo) {
    const auto p256 = TestKey(KeyType::p256);
    const auto ca =
        Issue({.subject = {{"C", "BG", V_ASN1_PRINTABLESTRING}, {"CN", "Издател"}}, .key = p256, .ca = true});
    std::vector<CertificateSpec> specs;
    for (const Name& name : std::vector<Name>{
             {{"CN", "Иван Петров", V_ASN1_BMPSTRING},
              {"O", "Фирма", V_ASN1_UNIVERSALSTRING},
              {"C", "BG", V_ASN1_PRINTABLESTRING}},
             {{"CN", "Caf\xE9 M\xFCnchen", V_ASN1_T61STRING}, {"serialNumber", "123 456", V_ASN1_NUMERICSTRING}},
             {{"CN", "𝄞 music"}, {"O", "𝄞", V_ASN1_UNIVERSALSTRING}},
             {{"O", "Фирма \"Слънце\", ООД"},
              {"CN", " a+b=c; <d> #e\\f "},
              {"serialNumber", "PNOBG-1", V_ASN1_PRINTABLESTRING, true},
              {"GN", "Иван", V_ASN1_UTF8STRING, true}},
             {{"CN", ""}, {"OU", "Отдел"}},
             {{"1.2.3.4.5", "нещо"}, {"DC", "bg", V_ASN1_IA5STRING}, {"emailAddress", "a@b.bg", V_ASN1_IA5STRING}},
             {},
             {{"CN", "two\nlines\ttab"}},
             {{"CN", "first"}, {"CN", "second"}, {"OU", "one"}, {"OU", "two"}}})
        specs.push_back({.subject = name, .key = p256});
    for (const Bytes& serial :
         std::vector<Bytes>{{0x00}, {0x01}, {0x00, 0x80}, {0x7F, 0xFF}, {0xFF}, Bytes(20, 0x9A), Bytes(32, 0x01)})
        specs.push_back({.serial = serial, .key = p256});
    for (const auto& [from, to] : {std::pair<std::int64_t, std::int64_t>{-1, 0},
                                   {-631'152'000, 2'524'607'999},
                                   {2'524'608'000, 253'402'300'799}})
        specs.push_back({.notBefore = from, .notAfter = to, .key = p256});
    for (const auto& key : {KeyOf("ED25519"), KeyOf("ED448"), KeyOf("X25519"), KeyOf("EC", "P-224"),
                            KeyOf("EC", "P-521"), KeyOf("EC", "brainpoolP320r1"), KeyOf("EC", "brainpoolP384r1"),
                            KeyOf("EC", "secp256k1"), RsaOf(1023), RsaOf(1024)})
        specs.push_back({.key = key});
    specs.push_back({.key = p256, .subjectKeyId = false, .authorityKeyId = false});
    specs.push_back({.key = p256, .extendedKeyUsage = "clientAuth,emailProtection"});
    specs.push_back({.key = p256,
                     .extendedKeyUsage = "critical,codeSigning,1.2.3.4,OCSPSigning",
                     .crlUrls = {"http://a.example/1.crl", "ldap://b.example/cn=2?certificateRevocationList",
                                 "http://c.example/3.crl"},
                     .ocspUrls = {"http://ocsp.example/"}});  // authorityInfoAccess is not where the record looks
    // AuthorityKeyIdentifier of serial number 05 06 07 beside an issuer's name (RFC 5280, 4.2.1.1).
    const Bytes issuerAndSerial = {0x30, 0x17, 0xA1, 0x10, 0xA4, 0x0E, 0x30, 0x0C, 0x31, 0x0A, 0x30, 0x08, 0x06,
                                   0x03, 0x55, 0x04, 0x03, 0x0C, 0x01, 'A',  0x82, 0x03, 0x05, 0x06, 0x07};
    specs.push_back({.key = p256, .authorityKeyId = false, .extra = {{"2.5.29.35", false, issuerAndSerial}}});
    Certificates made;
    const auto add = [&](const Certificate& certificate) {
        made.try_emplace(std::string(platform::AsText(certificate.Der())), "number " + std::to_string(made.size()));
    };
    for (const auto& spec : specs)
        add(Issue(spec, ca));
    for (const auto& spec :
         std::vector<CertificateSpec>{{.key = TestKey(KeyType::rsa2048), .hash = "SHA1"},
                                      {.key = TestKey(KeyType::rsa2048), .hash = "SHA384"},
                                      {.key = TestKey(KeyType::rsa3072), .hash = "SHA512", .pss = true},
                                      {.key = TestKey(KeyType::p384), .hash = "SHA384"},
                                      {.key = TestKey(KeyType::p384), .hash = "SHA512"},
                                      {.key = TestKey(KeyType::dsa2048), .hash = "SHA1"},
                                      {.key = KeyOf("ED25519"), .hash = nullptr},
                                      {.key = KeyOf("ED448"), .hash = nullptr}})
        add(Issue(spec));
    EXPECT_EQ(Compare(made), made.size());
}

// A member of the record of a certificate like this.
std::string Member(const CertificateSpec& spec, const char16_t* key) {
    toolkit::CkJsonObjectW json;
    EXPECT_TRUE(certificates::FillRecord(platform::CertCreateCertificateContext(Issue(spec).Der()), json));
    const auto* text = json.StringOf(key);
    return text != nullptr ? platform::ToUtf8(text) : "(absent)";
}

TEST(CertificateRecord, ShowsTheWholeOfANameALinePerPart) {
    const Name name{{"C", "BG", V_ASN1_PRINTABLESTRING}, {"O", "Фирма, ООД", V_ASN1_BMPSTRING}, {"CN", "Иван"}};
    EXPECT_EQ(Member({.subject = name}, u"Subject"), "CN=Иван\r\nO=\"Фирма, ООД\"\r\nC=BG");
    const CertificateSpec split{.subject = {{"CN", std::string("good.bg\0.evil.example", 21)}}};
    EXPECT_EQ(Member(split, u"CommonName"), "good.bg\uFFFD.evil.example");
    EXPECT_THAT(Member(split, u"Subject"), testing::HasSubstr(".evil.example"));
}

TEST(CertificateRecord, TellsTheRespondersOfAnExtensionUnderTheAccessMethodsNumber) {
    // SEQUENCE of two access descriptions: caIssuers http://a/ and ocsp http://b/
    const Bytes value = {0x30, 0x2E, 0x30, 0x15, 0x06, 0x08, 0x2B, 0x06, 0x01, 0x05, 0x05, 0x07, 0x30, 0x02, 0x86, 0x09,
                         'h',  't',  't',  'p',  ':',  '/',  '/',  'a',  '/',  0x30, 0x15, 0x06, 0x08, 0x2B, 0x06, 0x01,
                         0x05, 0x05, 0x07, 0x30, 0x01, 0x86, 0x09, 'h',  't',  't',  'p',  ':',  '/',  '/',  'b',  '/'};
    const auto responder = [](Bytes bytes) {
        return Member({.extra = {{"1.3.6.1.5.5.7.48.1", false, std::move(bytes)}}}, u"OCSP[0]");
    };
    EXPECT_EQ(responder(value), "http://b/");
    EXPECT_EQ(responder(Bytes(value.begin(), value.end() - 3)), "(absent)");
}

TEST(CertificateRecord, TellsDatesInLocalTimeWithItsDistance) {
    Profile profile;
    profile.Set("TZ", "EET-2EEST,M3.5.0/3,M10.5.0/4");
    const CertificateSpec spec{.notBefore = 1'709'280'900,  // 2024-03-01 08:15:00 UTC
                               .notAfter = 1'751'356'800};  // 2025-07-01 08:00:00 UTC
    EXPECT_EQ(Member(spec, u"NotBefore"), "2024-03-01T10:15:00+02:00");
    EXPECT_EQ(Member(spec, u"NotAfter"), "2025-07-01T11:00:00+03:00");
}

}  // namespace

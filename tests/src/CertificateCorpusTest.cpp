// The record of every certificate of the collections beside the checkout, beside what another program reads in it.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <openssl/evp.h>

#include <algorithm>
#include <iostream>
#include <map>

#include "platform/Stores.h"
#include "platform/Text.h"
#include "src/certificates/Record.h"
#include "tests/src/RecordPeers.h"
#include "tests/support/Corpora.h"
#include "tests/support/PemFile.h"
#include "tests/support/Pki.h"
#include "tests/support/Process.h"
#include "tests/support/Profile.h"
#include "toolkit/CkJsonArrayW.h"

namespace {

namespace fs = std::filesystem;
using Certificates = std::map<std::string, std::string>;  // DER, and where it was found first

std::vector<fs::path> FilesBelow(const fs::path& folder) {
    std::vector<fs::path> files;
    for (const auto& entry : fs::recursive_directory_iterator(folder))
        if (entry.is_regular_file()) files.push_back(entry.path());
    std::ranges::sort(files);
    return files;
}

void AddStore(const platform::CertStore& store, const fs::path& file, Certificates& found) {
    if (!store) return;
    for (const auto& certificate : platform::CertEnumCertificatesInStore(store))
        found.try_emplace(std::string(platform::AsText(certificate.Encoded())), file.string());
}

Certificates AllCertificates() {
    Certificates found;
    for (const auto& file : FilesBelow(tests::Corpus("chains")))
        for (const auto& block : tests::ReadPemFile(file))
            if (block.label.find("CERTIFICATE") != std::string::npos)
                found.try_emplace(std::string(platform::AsText(block.der)), file.string());
    for (const auto* folder : {"fuzz/x509", "cms"})
        for (const auto& file : FilesBelow(tests::Corpus(folder)))
            AddStore(platform::CertOpenBytesStore(platform::AsBytes(tests::ReadFile(file))), file, found);
    for (const auto& [file, password] : tests::PfxCorpus())
        AddStore(platform::PFXImportCertStore(platform::AsBytes(tests::ReadFile(file)), platform::Secret(password)),
                 file, found);
    return found;
}

// What the crypto library makes of the bytes as they stand; the other program hashes what it encodes anew.
std::string DigestOf(const std::string& der, const EVP_MD* algorithm) {
    tests::Bytes digest(EVP_MAX_MD_SIZE);
    unsigned int size = 0;
    EXPECT_EQ(EVP_Digest(der.data(), der.size(), digest.data(), &size, algorithm, nullptr), 1);
    digest.resize(size);
    return tests::Hex(digest);
}

tests::Record MembersOf(toolkit::CkJsonObjectW& json) {
    tests::Record record;
    for (const auto* key :
         {u"Serial", u"CommonName", u"Issuer", u"Subject", u"Organization", u"Thumbprint", u"ThumbprintSHA256",
          u"SignatureAlgorithm", u"SubjectKeyId", u"AuthorityKeyId", u"KeySize", u"NotBefore", u"NotAfter", u"CRL[0]",
          u"EnhancedKeyUsage[0]", u"EnhancedKeyUsageCritical[0]"}) {
        const auto* text = json.StringOf(key);
        record[platform::ToUtf8(key)] = text != nullptr ? platform::ToUtf8(text) : "(absent)";
    }
    return record;
}

class CertificateCorpus : public testing::Test {
  protected:
    CertificateCorpus() { profile_.Set("TZ", "UTC"); }
    // Every record whole, for itself and as another reader of JSON takes it, and as the other program sees it.
    void Compare(const Certificates& certificates) {
        for (const auto& [der, where] : certificates)
            CompareOne(der, where);
        std::cout << all_.Size() << " records, " << openssl_ << " compared, " << refused_ << " refused\n";
        all_.put_EmitCompact(false);
        const auto json = profile_.Write("all.json", platform::ToUtf8(all_.Emit()));
        EXPECT_EQ(Run({"python3", "-c", "import json, sys; print(len(json.load(open(sys.argv[1]))))", json}),
                  std::to_string(all_.Size()) + "\n");
    }
    std::size_t openssl_ = 0, refused_ = 0;
    tests::Profile profile_;

  private:
    static std::string Run(const std::vector<std::string>& command) {
        const auto result = tests::RunProgram(command);
        return result.status == 0 ? result.output : "";
    }
    void CompareOne(const std::string& der, const std::string& where) {
        const auto context = platform::CertCreateCertificateContext(platform::AsBytes(der));
        if (!context) {
            ++refused_;
            return;
        }
        toolkit::CkJsonObjectW json;
        EXPECT_TRUE(certificates::FillRecord(context, json)) << where;
        all_.AddObjectCopyAt(-1, json);
        const auto record = MembersOf(json);
        EXPECT_EQ(record.at("Thumbprint"), DigestOf(der, EVP_sha1())) << where;
        EXPECT_EQ(record.at("ThumbprintSHA256"), DigestOf(der, EVP_sha256())) << where;
        const auto file = profile_.Write("certificate", der);
        const auto openssl = Run({"openssl", "x509", "-inform", "DER", "-in", file, "-noout", "-serial", "-startdate",
                                  "-enddate", "-dateopt", "iso_8601", "-subject", "-issuer", "-nameopt",
                                  "utf8,oid,sep_multiline,esc_ctrl,dump_nostr,dump_der", "-text"});
        if (!openssl.empty()) {
            SCOPED_TRACE(where + "\n" + openssl);
            tests::ExpectAsOpenSslReads(record, openssl);
            ++openssl_;
        }
    }
    toolkit::CkJsonArrayW all_;
};

TEST_F(CertificateCorpus, IsDescribedAsOthersReadIt) {
    if (!fs::exists(tests::Corpus("chains"))) GTEST_SKIP() << "the collections are not beside the checkout";
    Compare(AllCertificates());
    EXPECT_GT(openssl_, 300U);
}

tests::Key KeyOf(const char* type, const char* parameter = nullptr) {
    return {EVP_PKEY_Q_keygen(nullptr, nullptr, type, parameter), EVP_PKEY_free};
}
tests::Key RsaOf(std::size_t bits) {
    return {EVP_PKEY_Q_keygen(nullptr, nullptr, "RSA", bits), EVP_PKEY_free};
}

// Names, numbers, moments, keys and lists that authorities use and the collections have too few of.
TEST_F(CertificateCorpus, AndSoAreOddOnes) {
    using tests::CertificateSpec;
    const auto p256 = TestKey(tests::KeyType::p256);
    const auto ca =
        tests::Issue({.subject = {{"C", "BG", V_ASN1_PRINTABLESTRING}, {"CN", "Издател"}}, .key = p256, .ca = true});
    const auto named = [&](tests::Name name) { return CertificateSpec{.subject = std::move(name), .key = p256}; };
    const auto keyed = [&](tests::Key key) { return CertificateSpec{.key = std::move(key)}; };
    const auto numbered = [&](tests::Bytes serial) {
        return CertificateSpec{.serial = std::move(serial), .key = p256};
    };
    const auto signedWith = [&](tests::KeyType type, const char* hash, bool pss = false) {
        return CertificateSpec{.key = TestKey(type), .hash = hash, .pss = pss};
    };
    const auto dated = [&](std::int64_t from, std::int64_t to) {
        return CertificateSpec{.notBefore = from, .notAfter = to, .key = p256};
    };
    CertificateSpec lists{.key = p256, .extendedKeyUsage = "critical,codeSigning,1.2.3.4,OCSPSigning"};
    lists.crlUrls = {"http://a.example/1.crl", "ldap://b.example/cn=2?certificateRevocationList",
                     "http://c.example/3.crl"};
    // AuthorityKeyIdentifier of serial number 05 06 07 beside an issuer's name (RFC 5280, 4.2.1.1).
    const tests::Bytes issuerAndSerial = {0x30, 0x17, 0xA1, 0x10, 0xA4, 0x0E, 0x30, 0x0C, 0x31, 0x0A, 0x30, 0x08, 0x06,
                                          0x03, 0x55, 0x04, 0x03, 0x0C, 0x01, 'A',  0x82, 0x03, 0x05, 0x06, 0x07};
    const CertificateSpec bySerial{
        .key = p256, .authorityKeyId = false, .extra = {{"2.5.29.35", false, issuerAndSerial}}};
    const CertificateSpec specs[] = {
        named({{"CN", "Иван Петров", V_ASN1_BMPSTRING},
               {"O", "Фирма", V_ASN1_UNIVERSALSTRING},
               {"C", "BG", V_ASN1_PRINTABLESTRING}}),
        named({{"CN", "Caf\xE9 M\xFCnchen", V_ASN1_T61STRING}, {"serialNumber", "123 456", V_ASN1_NUMERICSTRING}}),
        named({{"CN", "𝄞 music"}, {"O", "𝄞", V_ASN1_UNIVERSALSTRING}}),
        named({{"O", "Фирма \"Слънце\", ООД"},
               {"CN", " a+b=c; <d> #e\\f "},
               {"serialNumber", "PNOBG-1", V_ASN1_PRINTABLESTRING, true},
               {"GN", "Иван", V_ASN1_UTF8STRING, true}}),
        named({{"CN", ""}, {"OU", "Отдел"}}),
        named({{"1.2.3.4.5", "нещо"}, {"DC", "bg", V_ASN1_IA5STRING}, {"emailAddress", "a@b.bg", V_ASN1_IA5STRING}}),
        named({}),
        named({{"CN", "two\nlines\ttab"}}),
        named({{"CN", "first"}, {"CN", "second"}, {"OU", "one"}, {"OU", "two"}}),
        numbered({0x00}),
        numbered({0x01}),
        numbered({0x00, 0x80}),
        numbered({0x7F, 0xFF}),
        numbered({0xFF}),
        numbered(tests::Bytes(20, 0x9A)),
        numbered(tests::Bytes(32, 0x01)),
        dated(-1, 0),
        dated(-631'152'000, 2'524'607'999),
        dated(2'524'608'000, 253'402'300'799),
        keyed(KeyOf("ED25519")),
        keyed(KeyOf("ED448")),
        keyed(KeyOf("X25519")),
        keyed(KeyOf("EC", "P-224")),
        keyed(KeyOf("EC", "P-521")),
        keyed(KeyOf("EC", "brainpoolP320r1")),
        keyed(KeyOf("EC", "brainpoolP384r1")),
        keyed(KeyOf("EC", "secp256k1")),
        keyed(RsaOf(1023)),
        keyed(RsaOf(1024)),
        lists,
        bySerial,
        {.key = p256, .subjectKeyId = false, .authorityKeyId = false},
    };
    const CertificateSpec selfSigned[] = {
        signedWith(tests::KeyType::rsa2048, "SHA1"),         signedWith(tests::KeyType::rsa2048, "SHA384"),
        signedWith(tests::KeyType::rsa3072, "SHA512", true), signedWith(tests::KeyType::p384, "SHA384"),
        signedWith(tests::KeyType::p384, "SHA512"),          signedWith(tests::KeyType::dsa2048, "SHA1"),
        {.key = KeyOf("ED25519"), .hash = nullptr},          {.key = KeyOf("ED448"), .hash = nullptr}};
    Certificates made;
    const auto add = [&](const tests::Certificate& certificate) {
        made.try_emplace(std::string(platform::AsText(certificate.Der())), "number " + std::to_string(made.size()));
    };
    for (const auto& spec : specs)
        add(tests::Issue(spec, ca));
    for (const auto& spec : selfSigned)
        add(tests::Issue(spec));
    Compare(made);
    EXPECT_EQ(openssl_, made.size());
}

}  // namespace

#include "src/certificates/Record.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <regex>

#include "platform/Text.h"
#include "tests/support/Pki.h"
#include "tests/support/Process.h"

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using tests::Certificate;
using tests::Issue;
using tests::KeyType;
using tests::TestKey;

class Record {
  public:
    explicit Record(const Certificate& certificate) {
        filled = certificates::FillRecord(platform::CertCreateCertificateContext(certificate.Der()), json_);
    }
    std::string operator[](const std::u16string& key) {
        const auto* text = json_.StringOf(key.c_str());
        return text != nullptr ? platform::ToUtf8(text) : "(absent)";
    }
    std::string Text() { return platform::ToUtf8(json_.Emit()); }
    int ListSize(const char16_t* key) { return json_.SizeOfArray(key); }
    bool filled = false;

  private:
    toolkit::CkJsonObjectW json_;
};

class CertificateRecord : public testing::Test {
  protected:
    std::string OpenSsl(const Certificate& certificate, std::vector<std::string> options) {
        std::vector<std::string> command = {"openssl", "x509", "-noout", "-in",
                                            profile_.Write("certificate.pem", certificate.Pem())};
        command.insert(command.end(), options.begin(), options.end());
        const auto answer = tests::RunProgram(command);
        EXPECT_EQ(answer.status, 0) << answer.Summary();
        return answer.output;
    }
    // The line's value as bare digits.
    static std::string Digits(std::string text) {
        text = text.substr(text.find_last_of('=') + 1);
        std::erase_if(text, [](char c) { return c == ':' || c == '\n' || c == ' '; });
        return text;
    }
    tests::Profile profile_;
};

// Keys, serials, hash algorithms and identifiers as another program reads them.
TEST_F(CertificateRecord, AgreesWithWhatOpenSslReads) {
    profile_.Set("TZ", "UTC");
    const Certificate root = Issue({.subject = {{"CN", "Root"}}, .key = TestKey(KeyType::p256), .ca = true});
    const std::vector<std::pair<Certificate, std::string>> cases = {
        {tests::StandardPki().signer, "sha256RSA"},
        {Issue({.serial = {0x00, 0x80, 0x01}, .key = TestKey(KeyType::rsa3072), .hash = "SHA512"}), "sha512RSA"},
        {Issue({.key = TestKey(KeyType::rsa4096), .pss = true}), "RSASSA-PSS"},
        {Issue({.serial = {0x7F}, .key = TestKey(KeyType::p384)}, root), "sha256ECDSA"},
        {Issue({.key = TestKey(KeyType::dsa2048), .hash = "SHA1"}, root), "sha1ECDSA"},
        {Issue({.key = TestKey(KeyType::dsa2048)}), "sha256DSA"},
    };
    for (const auto& [certificate, algorithm] : cases) {
        SCOPED_TRACE(algorithm);
        Record record(certificate);
        ASSERT_TRUE(record.filled);
        // The zero that keeps a serial number positive is told too; the other program leaves it out.
        const auto serial = Digits(OpenSsl(certificate, {"-serial"}));
        EXPECT_EQ(record[u"Serial"], (serial[0] >= '8' ? "00" : "") + serial);
        EXPECT_EQ(record[u"Thumbprint"], Digits(OpenSsl(certificate, {"-fingerprint", "-sha1"})));
        EXPECT_EQ(record[u"ThumbprintSHA256"], Digits(OpenSsl(certificate, {"-fingerprint", "-sha256"})));
        EXPECT_EQ(record[u"SignatureAlgorithm"], algorithm);
        const auto text = OpenSsl(certificate, {"-text"});
        EXPECT_THAT(text, HasSubstr("(" + record[u"KeySize"] + " bit)"));
        const auto identifier = [this, &certificate = certificate](const char* extension) {
            auto lines = OpenSsl(certificate, {"-ext", extension});
            return Digits(lines.substr(lines.find('\n') + 1));
        };
        EXPECT_EQ(record[u"SubjectKeyId"], identifier("subjectKeyIdentifier"));
        EXPECT_EQ(record[u"AuthorityKeyId"], identifier("authorityKeyIdentifier"));
        auto dates = OpenSsl(certificate, {"-startdate", "-enddate", "-dateopt", "iso_8601"});
        std::ranges::replace(dates, ' ', 'T');
        const auto withoutZone = [&](const char16_t* key) { return record[key].substr(0, 19); };
        EXPECT_EQ(dates, "notBefore=" + withoutZone(u"NotBefore") + "Z\nnotAfter=" + withoutZone(u"NotAfter") + "Z\n");
    }
}

TEST_F(CertificateRecord, TellsTheSizeOfAnEdwardsKeyInWholeOctets) {
    const tests::Key key(EVP_PKEY_Q_keygen(nullptr, nullptr, "ED25519"), EVP_PKEY_free);
    ASSERT_NE(key, nullptr);
    Record record(Issue({.key = key, .signWith = TestKey(KeyType::p256)}));
    EXPECT_EQ(record[u"KeySize"], "256");
}

TEST_F(CertificateRecord, HasItsMembersInOneOrderWithEmptyTextsForWhatIsMissing) {
    Record record(Issue(
        {.subject = {{"CN", "Гол"}}, .key = TestKey(KeyType::p256), .subjectKeyId = false, .authorityKeyId = false}));
    const std::string text = record.Text();
    const std::regex key("\"(\\w+)\":");
    std::vector<std::string> keys;
    for (std::sregex_iterator at(text.begin(), text.end(), key), end; at != end; ++at)
        keys.push_back((*at)[1]);
    EXPECT_THAT(
        keys, ElementsAre("Serial", "CommonName", "Issuer", "Subject", "Organization", "Thumbprint", "ThumbprintSHA256",
                          "SignatureAlgorithm", "SubjectKeyId", "AuthorityKeyId", "KeySize", "NotBefore", "NotAfter"));
    for (const auto* missing : {u"Organization", u"SubjectKeyId", u"AuthorityKeyId"})
        EXPECT_EQ(record[missing], "");
    EXPECT_THAT(text, HasSubstr("\"KeySize\":256,")) << "a number, not a text";
}

TEST_F(CertificateRecord, KeepsTheLastElementOfEachList) {
    tests::CertificateSpec spec{.key = TestKey(KeyType::p256), .extendedKeyUsage = "clientAuth,emailProtection"};
    spec.crlUrls = {"http://a.example/1.crl", "ldap://b.example/cn=2"};
    spec.ocspUrls = {"http://ocsp.example/"};
    Record record(Issue(spec));
    EXPECT_EQ(record.ListSize(u"CRL"), 1);
    EXPECT_EQ(record[u"CRL[0]"], "ldap://b.example/cn=2");
    EXPECT_EQ(record[u"EnhancedKeyUsage[0]"], "Secure Email");
    EXPECT_EQ(record[u"EnhancedKeyUsageCritical"], "(absent)");
    EXPECT_EQ(record[u"OCSP"], "(absent)") << "authorityInfoAccess is not where it is looked for";

    Record critical(Issue({.key = TestKey(KeyType::p256), .extendedKeyUsage = "critical,timeStamping,1.2.3.4"}));
    EXPECT_EQ(critical[u"EnhancedKeyUsageCritical[0]"], "1.2.3.4");
    EXPECT_EQ(critical[u"EnhancedKeyUsage"], "(absent)");
}

TEST_F(CertificateRecord, TellsTheRespondersOfAnExtensionUnderTheAccessMethodsNumber) {
    // SEQUENCE of two access descriptions: caIssuers http://a/ and ocsp http://b/
    const platform::Bytes value = {0x30, 0x2E, 0x30, 0x15, 0x06, 0x08, 0x2B, 0x06, 0x01, 0x05, 0x05, 0x07,
                                   0x30, 0x02, 0x86, 0x09, 'h',  't',  't',  'p',  ':',  '/',  '/',  'a',
                                   '/',  0x30, 0x15, 0x06, 0x08, 0x2B, 0x06, 0x01, 0x05, 0x05, 0x07, 0x30,
                                   0x01, 0x86, 0x09, 'h',  't',  't',  'p',  ':',  '/',  '/',  'b',  '/'};
    const auto with = [](platform::Bytes bytes) {
        return Record(
            Issue({.key = TestKey(KeyType::p256), .extra = {{"1.3.6.1.5.5.7.48.1", false, std::move(bytes)}}}));
    };
    EXPECT_EQ(with(value)[u"OCSP[0]"], "http://b/");
    const platform::Bytes cut(value.begin(), value.end() - 3);
    auto broken = with(cut);
    EXPECT_TRUE(broken.filled);
    EXPECT_EQ(broken[u"OCSP"], "(absent)");
}

TEST_F(CertificateRecord, TellsNamesOfEveryStringType) {
    const auto subject = [](tests::Name name) {
        return Record(Issue({.subject = std::move(name), .key = TestKey(KeyType::p256)}));
    };
    auto joined = subject({{"C", "BG", V_ASN1_PRINTABLESTRING},
                           {"O", "Фирма, ООД", V_ASN1_BMPSTRING},
                           {"CN", "Иван Петров"},
                           {"serialNumber", "PNOBG-1", V_ASN1_PRINTABLESTRING, true}});
    EXPECT_EQ(joined[u"CommonName"], "Иван Петров");
    EXPECT_EQ(joined[u"Organization"], "Фирма, ООД");
    EXPECT_EQ(joined[u"Issuer"], "Иван Петров") << "self-signed";
    const auto lines = joined[u"Subject"];
    EXPECT_TRUE(lines == "CN=Иван Петров + SERIALNUMBER=PNOBG-1\r\nO=\"Фирма, ООД\"\r\nC=BG" ||
                lines == "SERIALNUMBER=PNOBG-1 + CN=Иван Петров\r\nO=\"Фирма, ООД\"\r\nC=BG")
        << lines;
    EXPECT_EQ(subject({{"OU", "Отдел"}, {"O", "Фирма"}})[u"CommonName"], "Отдел");
    EXPECT_EQ(subject({{"CN", "Caf\xE9", V_ASN1_T61STRING}})[u"CommonName"], "Café");
}

TEST_F(CertificateRecord, ShowsWhatStandsBehindAZeroInAName) {
    Record record(
        Issue({.subject = {{"CN", std::string("good.bg\0.evil.example", 21)}}, .key = TestKey(KeyType::p256)}));
    EXPECT_EQ(record[u"CommonName"], "good.bg\uFFFD.evil.example");
    EXPECT_THAT(record[u"Subject"], HasSubstr(".evil.example"));
}

TEST_F(CertificateRecord, TellsDatesInLocalTimeWithItsDistance) {
    profile_.Set("TZ", "EET-2EEST,M3.5.0/3,M10.5.0/4");
    Record record(Issue({.notBefore = 1'709'280'900,  // 2024-03-01 08:15:00 UTC
                         .notAfter = 1'751'356'800,   // 2025-07-01 08:00:00 UTC
                         .key = TestKey(KeyType::p256)}));
    EXPECT_EQ(record[u"NotBefore"], "2024-03-01T10:15:00+02:00");
    EXPECT_EQ(record[u"NotAfter"], "2025-07-01T11:00:00+03:00");
}

}  // namespace

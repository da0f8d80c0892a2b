#include "src/certificates/Record.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <regex>

#include "platform/Text.h"
#include "tests/support/Pki.h"

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

TEST(CertificateRecord, HasItsMembersInOneOrderWithEmptyTextsForWhatIsMissing) {
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
    const tests::Name name{{"C", "BG", V_ASN1_PRINTABLESTRING}, {"O", "Фирма, ООД", V_ASN1_BMPSTRING}, {"CN", "Иван"}};
    EXPECT_EQ(Record(Issue({.subject = name, .key = TestKey(KeyType::p256)}))[u"Subject"],
              "CN=Иван\r\nO=\"Фирма, ООД\"\r\nC=BG");
    EXPECT_THAT(text, HasSubstr("\"KeySize\":256,")) << "a number, not a text";
}

TEST(CertificateRecord, KeepsTheLastElementOfEachList) {
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

TEST(CertificateRecord, TellsTheRespondersOfAnExtensionUnderTheAccessMethodsNumber) {
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

TEST(CertificateRecord, ShowsWhatStandsBehindAZeroInAName) {
    Record record(
        Issue({.subject = {{"CN", std::string("good.bg\0.evil.example", 21)}}, .key = TestKey(KeyType::p256)}));
    EXPECT_EQ(record[u"CommonName"], "good.bg\uFFFD.evil.example");
    EXPECT_THAT(record[u"Subject"], HasSubstr(".evil.example"));
}

TEST(CertificateRecord, TellsDatesInLocalTimeWithItsDistance) {
    tests::Profile profile;
    profile.Set("TZ", "EET-2EEST,M3.5.0/3,M10.5.0/4");
    Record record(Issue({.notBefore = 1'709'280'900,  // 2024-03-01 08:15:00 UTC
                         .notAfter = 1'751'356'800,   // 2025-07-01 08:00:00 UTC
                         .key = TestKey(KeyType::p256)}));
    EXPECT_EQ(record[u"NotBefore"], "2024-03-01T10:15:00+02:00");
    EXPECT_EQ(record[u"NotAfter"], "2025-07-01T11:00:00+03:00");
}

}  // namespace

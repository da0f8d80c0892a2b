#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "platform/Certificates.h"
#include "platform/Text.h"
#include "src/certificates/ExtensionText.h"
#include "tests/support/PemFile.h"
#include "tests/support/Process.h"
#include "tests/support/Profile.h"

// Extensions as another program writes them, and as people are to read them.
namespace {

using certificates::ExtensionText;
using certificates::ReadableExtension;

// What openssl makes of the configuration below.
constexpr char kConfiguration[] = R"(
[req]
distinguished_name = name
prompt = no
[name]
CN = Test
[extensions]
keyUsage = critical, digitalSignature, nonRepudiation, decipherOnly
extendedKeyUsage = clientAuth, emailProtection, 1.2.3.4.5
basicConstraints = critical, CA:TRUE, pathlen:1
subjectAltName = @names
issuerAltName = URI:http://issuer.example/
nameConstraints = critical, permitted;email:.example.bg, permitted;dirName:directory, excluded;IP:10.0.0.0/255.0.0.0
crlDistributionPoints = first, second
authorityInfoAccess = OCSP;URI:http://ocsp.example/, caIssuers;URI:http://ca.example/ca.cer, 1.2.3.4;DNS:a.example
certificatePolicies = @policy, 0.4.0.194112.1.2, 2.5.29.32.0
policyConstraints = requireExplicitPolicy:3, inhibitPolicyMapping:0
inhibitAnyPolicy = 2
policyMappings = 1.2.3.4:1.2.3.5
noCheck = ignored
subjectKeyIdentifier = DEADBEEF
2.5.29.35 = ASN1:SEQUENCE:authority
1.2.3.4.5.6 = DER:00010203040506070809:0a0b0c0d0e0f10
[names]
email = ivan@example.bg
DNS = example.bg
URI = https://example.bg/?a=b
IP.1 = 192.0.2.1
IP.2 = 2001:db8::ff00:42
RID = 1.2.3.4
dirName = directory
otherName.1 = 1.3.6.1.4.1.311.20.2.3;UTF8:ivan@domain
otherName.2 = 1.2.3;INTEGER:5
[directory]
O = Firm
C = BG
[first]
fullname = URI:http://crl.example/1.crl, URI:ldap://crl.example/
[second]
fullname = URI:http://crl.example/2.crl
CRLissuer = dirName:directory
reasons = keyCompromise, CACompromise
[policy]
policyIdentifier = 1.2.3.4
CPS.1 = http://cps.example/
userNotice.1 = @notice
[notice]
explicitText = UTF8:Само за подписи
organization = Organ
noticeNumbers = 1, 12
[authority]
id = IMPLICIT:0,FORMAT:HEX,OCT:00FF
issuer = IMPLICIT:1,SEQUENCE:issuers
serial = IMPLICIT:2,INTEGER:258
[issuers]
dns = IMPLICIT:2,IA5:ca.example
)";

class ExtensionTexts : public testing::Test {
  protected:
    static void SetUpTestSuite() {
        const tests::Profile profile;
        const auto file = profile.Write("extensions.cnf", kConfiguration).string();
        const auto made = tests::RunProgram({"openssl", "req", "-x509", "-utf8", "-newkey", "ec", "-pkeyopt",
                                             "ec_paramgen_curve:P-256", "-nodes", "-keyout", "/dev/null", "-config",
                                             file, "-extensions", "extensions"});
        const auto pem = profile.Write("made.pem", made.output);
        const auto blocks = tests::ReadPemFile(pem);
        ASSERT_EQ(blocks.size(), 1U) << made.Summary();
        certificate_ = platform::CertCreateCertificateContext(blocks[0].der);
    }
    static void TearDownTestSuite() { certificate_ = {}; }
    static inline platform::CertificateContext certificate_;
};

TEST_F(ExtensionTexts, TellTheUsualOnesInLabelledLinesAndOthersAsBytes) {
    const std::pair<const char*, const char*> expected[] = {
        {"2.5.29.15", "цифров подпис, неотменимост, само дешифриране"},
        {"2.5.29.37", "удостоверяване на клиент\nзащита на електронна поща\n1.2.3.4.5"},
        {"2.5.29.19", "Вид: удостоверяващ орган\nНай-много междинни органи: 1"},
        {"2.5.29.17",
         "Имейл: ivan@example.bg\nDNS име: example.bg\nURL: https://example.bg/?a=b\nIP адрес: 192.0.2.1\n"
         "IP адрес: 2001:db8:0:0:0:0:ff00:42\nРегистриран идентификатор: 1.2.3.4\nИме: O=Firm, C=BG\n"
         "Име за вход: ivan@domain\n1.2.3: 02 01 05"},
        {"2.5.29.18", "URL: http://issuer.example/"},
        {"2.5.29.30",
         "Позволено: Имейл: .example.bg\nПозволено: Име: O=Firm, C=BG\nЗабранено: IP адрес: 10.0.0.0/255.0.0.0"},
        {"2.5.29.31",
         "URL: http://crl.example/1.crl\nURL: ldap://crl.example/\nURL: http://crl.example/2.crl\n"
         "Само при причини: разкрит ключ, разкрит ключ на издателя\nИздател на списъка: Име: O=Firm, C=BG"},
        {"1.3.6.1.5.5.7.1.1",
         "OCSP: URL: http://ocsp.example/\nСертификат на издателя: URL: http://ca.example/ca.cer\n"
         "1.2.3.4: DNS име: a.example"},
        {"2.5.29.32",
         "1.2.3.4\n   Практика: http://cps.example/\n   Източник: Organ № 1 № 12\n   Бележка: Само за подписи\n"
         "0.4.0.194112.1.2 (QCP-n-qscd: квалифициран, физическо лице, ключ в устройство)\n"
         "2.5.29.32.0 (всяка политика)"},
        {"2.5.29.36", "Изрична политика след сертификати: 3\nБез съответствия на политики след сертификати: 0"},
        {"2.5.29.54", "След сертификати: 2"},
        {"2.5.29.33", "1.2.3.4 = 1.2.3.5"},
        {"1.3.6.1.5.5.7.48.1.5", "Да"},
        {"2.5.29.14", "DEADBEEF"},
        {"2.5.29.35", "Ключ: 00FF\nИздател: DNS име: ca.example\nСериен номер: 0102"},
        {"1.2.3.4.5.6", "00 01 02 03 04 05 06 07 08 09 0a 0b 0c 0d 0e 0f\n10"}};
    EXPECT_EQ(certificate_.Info().rgExtension.size(), std::size(expected));
    for (const auto& [oid, text] : expected) {
        const auto* const extension = platform::CertFindExtension(certificate_, oid);
        ASSERT_NE(extension, nullptr) << oid;
        EXPECT_EQ(platform::ToUtf8(ExtensionText(oid, extension->Value)), text) << oid;
    }
}

// A part that was read must not hide that the rest is something else.
TEST_F(ExtensionTexts, ShowBytesAsSoonAsSomethingIsMissingOrLeftOver) {
    for (const auto& extension : certificate_.Info().rgExtension) {
        if (extension.pszObjId == "1.2.3.4.5.6") continue;
        auto value = extension.Value;
        value.push_back(0);
        EXPECT_FALSE(ReadableExtension(extension.pszObjId, value)) << extension.pszObjId;
        for (value = extension.Value; !value.empty();) {
            value.pop_back();
            EXPECT_FALSE(ReadableExtension(extension.pszObjId, value)) << extension.pszObjId << " " << value.size();
        }
    }
}

TEST_F(ExtensionTexts, LetNothingWrittenInThemReachBeyondItsLine) {
    using platform::Bytes;
    const std::pair<const char*, Bytes> values[] = {
        {"2.5.29.17", {0x30, 0x05, 0x82, 0x03, 'a', '\n', 'b'}},
        {"2.5.29.17", {0x30, 0x08, 0x81, 0x06, 'a', 0xE2, 0x80, 0xAE, 'b', 'c'}},  // turns the writing round
        {"1.3.6.1.5.5.7.1.1", {0x30, 0x0A, 0x30, 0x08, 0x06, 0x01, 0x2A, 0x86, 0x03, 'a', '\r', 'b'}}};
    for (const auto& [oid, value] : values) {
        const auto text = ReadableExtension(oid, value);
        ASSERT_TRUE(text) << oid;
        EXPECT_EQ(text->find_first_of(u"\n\r\u202E"), std::u16string::npos) << platform::ToUtf8(*text);
    }
}

}  // namespace

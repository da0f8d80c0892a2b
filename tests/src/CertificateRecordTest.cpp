#include "src/certificates/Record.h"

#include <gmock/gmock.h>

#include "platform/Text.h"
#include "tests/support/Pki.h"

namespace {

using tests::Bytes;

// A member of the record of a certificate like this.
std::string Member(const tests::CertificateSpec& spec, const char16_t* key) {
    toolkit::CkJsonObjectW json;
    EXPECT_TRUE(certificates::FillRecord(platform::CertCreateCertificateContext(Issue(spec).Der()), json));
    const auto* text = json.StringOf(key);
    return text != nullptr ? platform::ToUtf8(text) : "(absent)";
}

TEST(CertificateRecord, ShowsTheWholeOfANameALinePerPart) {
    const tests::Name name{{"C", "BG", V_ASN1_PRINTABLESTRING}, {"O", "Фирма, ООД", V_ASN1_BMPSTRING}, {"CN", "Иван"}};
    EXPECT_EQ(Member({.subject = name}, u"Subject"), "CN=Иван\r\nO=\"Фирма, ООД\"\r\nC=BG");
    const tests::CertificateSpec split{.subject = {{"CN", std::string("good.bg\0.evil.example", 21)}}};
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
    tests::Profile profile;
    profile.Set("TZ", "EET-2EEST,M3.5.0/3,M10.5.0/4");
    const tests::CertificateSpec spec{.notBefore = 1'709'280'900,  // 2024-03-01 08:15:00 UTC
                                      .notAfter = 1'751'356'800};  // 2025-07-01 08:00:00 UTC
    EXPECT_EQ(Member(spec, u"NotBefore"), "2024-03-01T10:15:00+02:00");
    EXPECT_EQ(Member(spec, u"NotAfter"), "2025-07-01T11:00:00+03:00");
}

}  // namespace

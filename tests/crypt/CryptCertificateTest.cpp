#include "crypt/CryptCertificate.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "crypt/CryptContext.h"
#include "platform/Text.h"
#include "tests/support/Pki.h"

namespace tessaly {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using tests::Bytes;
using tests::CertificateSpec;
using tests::Issue;
using tests::KeyType;
using tests::TestKey;

CryptCertificate Object(const tests::Certificate& certificate) {
    return CryptCertificate(platform::ByteView(certificate.Der()));
}

// A self-signed certificate with these further extensions.
CryptCertificate With(std::vector<tests::Extension> extra, CertificateSpec spec = {}) {
    spec.key = TestKey(KeyType::p256);
    spec.subjectKeyId = false;
    spec.extra = std::move(extra);
    return Object(Issue(spec));
}

tests::Certificate Named(const char* name, unsigned key = 0) {
    return Issue({.subject = {{"CN", name}}, .key = TestKey(KeyType::p256, key), .ca = true});
}

TEST(CryptCertificate, TellsWhatTheCertificateSays) {
    const tests::Certificate root = Named("Корен");
    const tests::Certificate leaf = Issue({.subject = {{"O", "Фирма ООД"}, {"CN", "Иван Иванов"}},
                                           .serial = {0x02, 0x01, 0xAB},
                                           .notBefore = 1'709'330'400,  // 22:00 UTC is midnight in Sofia,
                                           .notAfter = 1'719'867'600,   // and 21:00 UTC in summer
                                           .key = TestKey(KeyType::p256, 1)},
                                          root);
    tests::Profile profile;
    profile.Set("TZ", "EET-2EEST,M3.5.0/3,M10.5.0/4");
    CryptCertificate certificate = Object(leaf);
    EXPECT_EQ(certificate.GetSubjectName(), u"Иван Иванов");
    EXPECT_EQ(certificate.GetIssuerName(), u"Корен");
    EXPECT_EQ(certificate.GetOrganization(), u"Фирма ООД");
    EXPECT_EQ(certificate.GetSerialNumber(), u"0201AB");
    EXPECT_EQ(certificate.GetThumbprint(), platform::ToWide(leaf.Thumbprint()));
    EXPECT_EQ(certificate.GetThumbprintSha256().size(), 64U);
    EXPECT_EQ(certificate.GetValidFrom(), platform::GetDateFormatW(2024, 3, 2));
    EXPECT_EQ(certificate.GetValidTo(), platform::GetDateFormatW(2024, 7, 2));
    EXPECT_EQ(certificate.GetAuthorityKeyId(), Object(root).GetSubjectKeyId());
    EXPECT_EQ(certificate.GetSubjectKeyId().size(), 40U);
    EXPECT_EQ(CryptCertificate(certificate).GetSerialNumber(), u"0201AB") << "a copy";
    EXPECT_EQ(Object(root).GetOrganization(), u"");
}

TEST(CryptCertificate, AnswersEmptyWithoutACertificate) {
    CryptCertificate broken{platform::AsBytes("no certificate")}, null;
    EXPECT_NE(broken.lastError, 0U);
    for (CryptCertificate* certificate : {&broken, &null}) {
        EXPECT_EQ(certificate->GetSubjectName() + certificate->GetIssuerName() + certificate->GetOrganization() +
                      certificate->GetSerialNumber() + certificate->GetThumbprint() +
                      certificate->GetThumbprintSha256() + certificate->GetSubjectKeyId() +
                      certificate->GetAuthorityKeyId() + certificate->GetValidFrom() + certificate->GetValidTo(),
                  u"");
        EXPECT_THAT(certificate->GetCrlUrls(), IsEmpty());
        EXPECT_FALSE(certificate->LoadEnhancedKeyUsage());
    }
}

TEST(CryptCertificate, TakesTheAuthorityKeyIdOfTheOlderExtensionFirst) {
    // SEQUENCE { [0] key identifier } and SEQUENCE { [2] serial } as 2.5.29.35 has them. In 2.5.29.1 the serial is [2]
    // too.
    const char *const newer = "2.5.29.35", *const older = "2.5.29.1";
    const tests::Extension usual{newer, false, {0x30, 4, 0x80, 2, 0xAA, 0xBB}};
    const struct {
        const char* name;
        std::vector<tests::Extension> extensions;
        std::u16string id;
    } cases[] = {
        {"the newer alone", {usual}, u"AABB"},
        {"both", {usual, {older, false, {0x30, 5, 0x80, 3, 1, 2, 3}}}, u"010203"},
        {"an older one that says nothing hides the newer one", {{older, false, {0x30, 0}}, usual}, u""},
        {"an identifier of one byte counts as absent; the serial number stands as it is stored",
         {{older, false, {0x30, 7, 0x80, 1, 5, 0x82, 2, 0x12, 0x34}}},
         u"3412"},
        {"one byte", {{newer, false, {0x30, 3, 0x80, 1, 5}}}, u""},
        {"what does not decode", {{newer, false, {4, 1, 5}}}, u""},
        {"none", {}, u""},
    };
    for (const auto& [name, extensions, id] : cases)
        EXPECT_EQ(With(extensions).GetAuthorityKeyId(), id) << name;
}

TEST(CryptCertificate, ListsTheUrlsOfItsRevocationListsInTheirOrder) {
    CertificateSpec spec;
    spec.crlUrls = {"ldap://dir.example.bg/cn=ca?certificateRevocationList", "http://crl.example.bg/ca.crl"};
    CryptCertificate certificate = With({}, spec);
    for (const char* when : {"first", "asked again"})
        EXPECT_THAT(certificate.GetCrlUrls(), ElementsAre(u"ldap://dir.example.bg/cn=ca?certificateRevocationList",
                                                          u"http://crl.example.bg/ca.crl"))
            << when;
    EXPECT_THAT(With({}).GetCrlUrls(), IsEmpty());
    // One point relative to the issuer, then one with a mail address and a URL as full name.
    const Bytes points{0x30, 0x1E, 0x30, 0x0F, 0xA0, 0x0D, 0xA1, 0x0B, 0x30, 0x09, 0x06, 0x03, 0x55, 0x04, 0x03, 0x0C,
                       0x02, 'c',  'a',  0x30, 0x0B, 0xA0, 0x09, 0xA0, 0x07, 0x81, 0x01, 'm',  0x86, 0x02, 'u',  ':'};
    EXPECT_THAT(With({{"2.5.29.31", false, points}}).GetCrlUrls(), ElementsAre(u"u:"));
    EXPECT_THAT(With({{"2.5.29.31", false, {0x30, 0x05, 0x01}}}).GetCrlUrls(), IsEmpty());
}

TEST(CryptCertificate, NamesItsUsagesInTheListOfTheirWeight) {
    CertificateSpec spec;
    spec.extendedKeyUsage = "critical,emailProtection,1.2.3.4";
    CryptCertificate critical = With({}, spec);
    for (int again = 0; again < 2; ++again) {
        ASSERT_TRUE(critical.LoadEnhancedKeyUsage());
        EXPECT_THAT(critical.UsagesCritical(), ElementsAre(u"Secure Email", u"1.2.3.4"));
        EXPECT_THAT(critical.UsagesNonCritical(), IsEmpty());
    }
    spec.extendedKeyUsage = "timeStamping";
    CryptCertificate plain = With({}, spec);
    ASSERT_TRUE(plain.LoadEnhancedKeyUsage());
    EXPECT_THAT(plain.UsagesNonCritical(), ElementsAre(u"Time Stamping"));
    EXPECT_THAT(plain.UsagesCritical(), IsEmpty());

    CryptCertificate property = With({});
    ASSERT_TRUE(property.LoadEnhancedKeyUsage());
    EXPECT_THAT(property.UsagesNonCritical(), IsEmpty()) << "no restriction";
    ASSERT_TRUE(platform::CertSetCertificateContextProperty(
        property.Context(), platform::CERT_ENHKEY_USAGE_PROP_ID,
        Bytes{0x30, 0x0A, 0x06, 0x08, 0x2B, 0x06, 0x01, 0x05, 0x05, 0x07, 0x03, 0x02}));
    ASSERT_TRUE(property.LoadEnhancedKeyUsage());
    EXPECT_THAT(property.UsagesNonCritical(), ElementsAre(u"Client Authentication"));

    CryptCertificate broken = With({{"2.5.29.37", true, {0x04, 0x00}}});
    EXPECT_FALSE(broken.LoadEnhancedKeyUsage());
    EXPECT_NE(broken.lastError, 0U);
}

TEST(CryptCertificate, IsSortedByNameWithoutRegardToLetterCase) {
    std::vector<platform::CertificateContext> sorted;
    for (const char* name : {"alpha", "Ann", "Anna", "Beta", "ангел", "Борис"})
        sorted.push_back(Object(Named(name)).Context());
    for (std::size_t i = 0; i < sorted.size(); ++i)
        for (std::size_t j = 0; j < sorted.size(); ++j)
            EXPECT_EQ(CryptCertificate::LessBySubjectName(sorted[i], sorted[j]), i < j) << i << " " << j;
    const auto other = Object(Named("АНГЕЛ")).Context();
    EXPECT_FALSE(CryptCertificate::LessBySubjectName(other, sorted[4]));
    EXPECT_FALSE(CryptCertificate::LessBySubjectName(sorted[4], other));
}

TEST(CryptCertificate, JudgesItsChainAsOfNow) {
    const tests::Profile profile;
    const tests::Certificate root = Named("Root");
    const tests::Certificate leaf = Issue({.subject = {{"CN", "Leaf"}}, .key = TestKey(KeyType::p256, 1)}, root);
    tests::InstallCertificate(profile, "ROOT", root);
    CryptCertificate certificate = Object(leaf);
    const CryptStore roots(u"ROOT");
    EXPECT_TRUE(certificate.Chain().elements.empty());
    const CertStatusResult unknown = certificate.BuildChain(roots);
    EXPECT_EQ(unknown.status, platform::CRYPT_E_NO_REVOCATION_CHECK) << "nobody can tell of its revocation";
    EXPECT_EQ(unknown.text, StatusText(platform::CRYPT_E_NO_REVOCATION_CHECK));
    EXPECT_EQ(certificate.Chain().elements.size(), 2U);

    tests::InstallCrl(profile, "CA", tests::MakeCrl(root));
    EXPECT_EQ(Object(leaf).BuildChain(roots).status, 0U);
    EXPECT_EQ(Object(leaf).BuildChain(CryptStore(platform::CertStore())).text, u"Сертификатът е валиден.")
        << "also without an additional store";
    EXPECT_EQ(ClassifyStatus(Object(Named("Stranger", 2)).BuildChain(roots).status), StatusClass::invalid);
}

TEST(CryptStore, CountsItsCertificatesOrNoneWithoutAStore) {
    const tests::Profile profile;
    EXPECT_EQ(CryptStore().GetCertificateCount(), 0U);
    tests::InstallCertificate(profile, "Mine", Issue({.key = TestKey(KeyType::p256)}));
    EXPECT_EQ(CryptStore(u"Mine").GetCertificateCount(), 1U);
    const CryptStore refused(u"../Mine");
    EXPECT_FALSE(refused.store);
    EXPECT_NE(refused.lastError, 0U);
    EXPECT_EQ(refused.GetCertificateCount(), 0U);
}

TEST(CryptContext, HoldsTheKeyOfItsCertificateOrTellsWhyNot) {
    const tests::Profile profile;
    const tests::Certificate owner = Issue({.key = TestKey(KeyType::p256)});
    tests::InstallCertificate(profile, "MY", owner, true);
    const auto stored = platform::CertEnumCertificatesInStore(CryptStore(u"MY").store);
    ASSERT_EQ(stored.size(), 1U);
    CryptContext context;
    ASSERT_TRUE(context.Acquire(stored[0]));
    EXPECT_TRUE(context.handle);
    EXPECT_TRUE(context.isCngKey);
    EXPECT_FALSE(context.Acquire(Object(owner).Context())) << "the same certificate from no store has no key";
    EXPECT_EQ(context.lastError, platform::CRYPT_E_NO_KEY_PROPERTY);
    EXPECT_FALSE(context.handle);
}

}  // namespace
}  // namespace tessaly

// Certificates, their fields and properties, and the names in them.

#include "platform/Certificates.h"

#include <gtest/gtest.h>
#include <openssl/x509v3.h>

#include "platform/Hash.h"
#include "platform/Text.h"
#include "platform/posix/CertificateFile.h"
#include "platform/posix/Native.h"
#include "tests/support/ChainWorld.h"
#include "tests/support/Corpora.h"
#include "tests/support/LastError.h"

namespace {

using namespace platform;
using namespace tests;

CertificateContext Context(CertificateSpec spec) {
    spec.key = TestKey(KeyType::p256);
    return CertCreateCertificateContext(Issue(spec).Der());
}

// Our decoder of the fields beside the crypto library's.
void ExpectFieldsOf(const CertificateContext& context) {
    const X509* native = posix::NativeOf(context);
    if (native == nullptr) return;  // damaged on purpose below the fields
    const CERT_INFO& info = context.Info();
    const auto moment = [](const ASN1_TIME* time) {
        tm parts{};
        const std::int64_t seconds = ASN1_TIME_to_tm(time, &parts) == 1 ? timegm(&parts) : 0;
        return std::max(seconds, UnixFromFileTime(0));  // the earliest that a FILETIME tells
    };
    EXPECT_EQ(info.dwVersion, static_cast<std::uint32_t>(X509_get_version(native)));
    // Ours is stored with its last octet first; the library strips the sign octet.
    Bytes digits(info.SerialNumber.rbegin(), info.SerialNumber.rend());
    while (digits.size() > 1 && digits[0] == 0)
        digits.erase(digits.begin());
    const ASN1_INTEGER* serial = X509_get0_serialNumber(native);
    const ByteView known(ASN1_STRING_get0_data(serial), static_cast<std::size_t>(ASN1_STRING_length(serial)));
    if (ASN1_STRING_type(serial) == V_ASN1_INTEGER) {
        EXPECT_EQ(digits, CopyOf(known));
    }
    EXPECT_EQ(UnixFromFileTime(info.NotBefore), moment(X509_get0_notBefore(native)));
    EXPECT_EQ(UnixFromFileTime(info.NotAfter), moment(X509_get0_notAfter(native)));
    EXPECT_EQ(info.Subject, posix::EncodeDer<i2d_X509_NAME>(X509_get_subject_name(native)));
    EXPECT_EQ(info.Issuer, posix::EncodeDer<i2d_X509_NAME>(X509_get_issuer_name(native)));
    EXPECT_EQ(info.SubjectPublicKeyInfo, posix::EncodeDer<i2d_X509_PUBKEY>(X509_get_X509_PUBKEY(native)));
    EXPECT_EQ(info.rgExtension.size(), static_cast<std::size_t>(std::max(X509_get_ext_count(native), 0)));
}

TEST(CertificateContext, FieldsAreThoseOfTheCertificate) {
    const auto context = Context({.notBefore = 1'700'000'000, .extendedKeyUsage = "critical,timeStamping"});
    ExpectFieldsOf(context);
    ASSERT_NE(CertFindExtension(context, "2.5.29.37"), nullptr);
    EXPECT_TRUE(CertFindExtension(context, "2.5.29.37")->fCritical);
    EXPECT_EQ(CertFindExtension(context, "2.5.29.17"), nullptr);
    const CERT_INFO& info = context.Info();
    const std::pair<FILETIME, int> moments[] = {
        {info.NotBefore - 1, -1}, {info.NotBefore, 0}, {info.NotAfter, 0}, {info.NotAfter + 1, 1}};
    for (const auto& [moment, side] : moments)
        EXPECT_EQ(CertVerifyTimeValidity(moment, context), side);
}

TEST(CertificateContext, FieldsOfOthersCertificatesAgreeWithTheCryptoLibrary) {
    const auto folder = Corpus("chains");
    if (!std::filesystem::exists(folder)) GTEST_SKIP() << "no corpus at " << folder;
    std::size_t compared = 0;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(folder)) {
        if (!entry.is_regular_file()) continue;
        SCOPED_TRACE(entry.path());
        for (const auto& context : posix::ReadCertificateFile(AsBytes(ReadFile(entry.path()))).certificates) {
            ExpectFieldsOf(context);
            ++compared;
        }
    }
    EXPECT_GT(compared, 300U);
}

TEST(CertificateContext, EveryTruncationAndEveryTrailingByteIsRefused) {
    Bytes der = CopyOf(Context({}).Encoded());
    for (std::size_t size = 0; size < der.size(); ++size) {
        EXPECT_FAILS(CertCreateCertificateContext(ByteView(der).first(size)), CRYPT_E_ASN1_EOD) << size;
    }
    der.push_back(0);
    EXPECT_FAILS(CertCreateCertificateContext(der), CRYPT_E_BAD_ENCODE);
    EXPECT_FAILS(CertCreateCertificateContext(AsBytes("not a certificate")), CRYPT_E_ASN1_BADTAG);
}

TEST(CertificateContext, PropertiesAreComputedOrSharedByCopies) {
    const auto context = Context({.subjectKeyId = false}), copy = context, withId = Context({});
    const auto& get = CertGetCertificateContextProperty;
    EXPECT_EQ(get(context, CERT_SHA256_HASH_PROP_ID), Digest(HashAlgorithm::sha256, context.Encoded()));
    EXPECT_EQ(get(context, CERT_KEY_IDENTIFIER_PROP_ID),
              Digest(HashAlgorithm::sha1, context.Info().SubjectPublicKeyInfo));
    EXPECT_EQ(get(withId, CERT_KEY_IDENTIFIER_PROP_ID),
              DecodeOctetString(CertFindExtension(withId, "2.5.29.14")->Value));
    EXPECT_TRUE(CertSetCertificateContextProperty(context, CERT_FRIENDLY_NAME_PROP_ID, Bytes{1, 2}));
    EXPECT_EQ(get(copy, CERT_FRIENDLY_NAME_PROP_ID), (Bytes{1, 2}));
    EXPECT_TRUE(CertSetCertificateContextProperty(copy, CERT_FRIENDLY_NAME_PROP_ID, std::nullopt));
    EXPECT_FAILS(get(context, CERT_FRIENDLY_NAME_PROP_ID), CRYPT_E_NOT_FOUND);
}

TEST(Extensions, KeyUsageBitsStandAsEncoded) {
    EXPECT_EQ(CertGetIntendedKeyUsage(Context({.keyUsage = "digitalSignature,nonRepudiation"})), 0x00C0);
    EXPECT_EQ(CertGetIntendedKeyUsage(Context({.keyUsage = "keyAgreement,decipherOnly"})), 0x8008);
    EXPECT_FAILS(CertGetIntendedKeyUsage(Context({.keyUsage = ""})), CRYPT_E_NOT_FOUND);
}

TEST(ObjectIdentifiers, AreFoundByNumberAndGroup) {
    const std::tuple<const char*, std::uint32_t, std::u16string_view> cases[] = {
        {"1.2.840.113549.1.1.11", 0, u"sha256RSA"},
        {"1.2.840.113549.1.1.10", CRYPT_SIGN_ALG_OID_GROUP_ID, u"RSASSA-PSS"},
        {"2.16.840.1.101.3.4.2.1", 0, u"sha256"},
        {"1.3.6.1.4.1.311.10.3.12", CRYPT_ENHKEY_USAGE_OID_GROUP_ID, u"Document Signing"},
        {"1.3.6.1.4.1.311.10.3.12", CRYPT_HASH_ALG_OID_GROUP_ID, u""},
        {"1.2.3.4", 0, u""}};
    for (const auto& [oid, group, name] : cases) {
        const auto* info = CryptFindOIDInfo(CRYPT_OID_INFO_OID_KEY, oid, group);
        EXPECT_EQ(info == nullptr ? u"" : std::u16string_view(info->pwszName), name);
    }
    EXPECT_EQ(GetLastError(), CRYPT_E_NOT_FOUND);
    EXPECT_EQ(CryptFindOIDInfo(5, "1.3.6.1.5.5.7.3.1", CRYPT_ENHKEY_USAGE_OID_GROUP_ID), nullptr);
}

// --- Names ---

Certificate Issued(const Name& subject, const std::string& subjectAltName = {}) {
    return Issue({.subject = subject, .key = TestKey(KeyType::p256), .subjectAltName = subjectAltName});
}
NameEntry Mail(const char* address) {
    return {"emailAddress", address, V_ASN1_IA5STRING};
}
std::u16string X500(const Name& subject, std::uint32_t flags = 0, std::uint32_t form = CERT_X500_NAME_STR) {
    return CertNameToStrW(Issued(subject).SubjectDer(), form | flags);
}
std::u16string Display(const Name& subject, const std::string& subjectAltName = {}) {
    return CertGetNameStringW(ContextOf(Issued(subject, subjectAltName)), CERT_NAME_SIMPLE_DISPLAY_TYPE, 0);
}

TEST(Names, SimpleDisplayTakesTheFirstKindThatIsThere) {
    const std::tuple<Name, const char*, std::u16string> cases[] = {
        {{{"O", "Орг"}, {"OU", "Отдел"}, Mail("e@x.bg"), {"CN", "Иван"}}, "", u"Иван"},
        {{{"O", "Орг"}, {"OU", "Отдел"}}, "email:san@x.bg", u"Отдел"},
        {{Mail("e@x.bg"), {"O", "Орг"}}, "", u"Орг"},
        {{{"C", "BG"}, Mail("e@x.bg")}, "email:san@x.bg", u"e@x.bg"},
        {{{"C", "BG"}, {"L", "София"}}, "DNS:x.bg,email:san@x.bg,email:b@x.bg", u"san@x.bg"},
        {{{"L", "София"}, {"C", "BG"}}, "DNS:x.bg", u"София"},
        {{{"CN", "първо"}, {"CN", "второ"}}, "", u"първо"},
        {{}, "email:san@x.bg", u"san@x.bg"},
        {{}, "", u""},
    };
    for (const auto& [subject, subjectAltName, text] : cases)
        EXPECT_EQ(Display(subject, subjectAltName), text);
}

TEST(Names, IssuerAttributesAndAddressAreAskedSeparately) {
    const auto ca = Issue({.subject = {{"CN", "CA"}, {"O", "Издател"}}, .ca = true});
    const auto context = ContextOf(Issue({.subject = {{"CN", "Иван"}, Mail("e@x.bg")}}, ca));
    EXPECT_EQ(CertGetNameStringW(context, CERT_NAME_SIMPLE_DISPLAY_TYPE, CERT_NAME_ISSUER_FLAG), u"CA");
    EXPECT_EQ(CertGetNameStringW(context, CERT_NAME_ATTR_TYPE, CERT_NAME_ISSUER_FLAG, "2.5.4.10"), u"Издател");
    EXPECT_EQ(CertGetNameStringW(context, CERT_NAME_ATTR_TYPE, 0, "2.5.4.10"), u"");
    EXPECT_EQ(CertGetNameStringW(context, CERT_NAME_EMAIL_TYPE, 0), u"e@x.bg");
    EXPECT_EQ(CertGetNameStringW(context, CERT_NAME_RDN_TYPE, 0), u"CN=Иван, E=e@x.bg");
    EXPECT_EQ(CertGetNameStringW({}, CERT_NAME_SIMPLE_DISPLAY_TYPE, 0), u"");
}

TEST(Names, EveryStringTypeIsDecoded) {
    using namespace std::string_literals;
    EXPECT_EQ(Display({{"CN", "Иван Ёлкин"}}), u"Иван Ёлкин");
    EXPECT_EQ(Display({{"CN", "Иван", V_ASN1_BMPSTRING}}), u"Иван");
    EXPECT_EQ(Display({{"CN", "Ив𝄞н", V_ASN1_UNIVERSALSTRING}}), u"Ив𝄞н");
    EXPECT_EQ(Display({{"CN", "M\xFCller", V_ASN1_T61STRING}}), u"Müller");
    EXPECT_EQ(Display({{"CN", "Plain Name", V_ASN1_PRINTABLESTRING}}), u"Plain Name");
    // An embedded NUL must not make "good\0evil" look like "good".
    EXPECT_EQ(Display({{"CN", "good\0evil"s}}), u"good\0evil"s);
    EXPECT_EQ(X500({{"CN", "good\0evil"s}}), u"CN=good\0evil"s);
}

TEST(Names, X500TextQuotesJoinsAndTurns) {
    for (const char* plain : {"plain", "back\\slash 'и'"})
        EXPECT_EQ(X500({{"O", plain}}), u"O=" + ToWide(plain));
    for (const std::string quoted : {"a,b", "a+b", "a=b", "two\nlines", "<a>", "#1", "a;b", " lead", "trail "})
        EXPECT_EQ(X500({{"O", quoted}}), u"O=\"" + ToWide(quoted) + u"\"");
    EXPECT_EQ(X500({{"O", "say \"hi\""}}), u"O=\"say \"\"hi\"\"\"");

    const Name name{{"C", "BG"},
                    {"ST", "Област"},
                    {"CN", "Иван"},
                    {"SN", "Иванов", V_ASN1_UTF8STRING, true},
                    {"1.2.3.4", "особено"}};
    EXPECT_EQ(X500(name), u"C=BG, S=Област, CN=Иван + SN=Иванов, OID.1.2.3.4=особено");
    EXPECT_EQ(X500(name, CERT_NAME_STR_REVERSE_FLAG | CERT_NAME_STR_CRLF_FLAG),
              u"OID.1.2.3.4=особено\r\nCN=Иван + SN=Иванов\r\nS=Област\r\nC=BG");
    EXPECT_EQ(X500(name, 0, CERT_SIMPLE_NAME_STR), u"BG, Област, Иван + Иванов, особено");
    EXPECT_EQ(X500({{"CN", "x"}}, 0, CERT_OID_NAME_STR), u"2.5.4.3=x");
}

TEST(Names, EveryKnownTypeHasItsKey) {
    Name name;
    for (const char* type : {"CN", "SN", "serialNumber", "L", "ST", "street", "O", "OU", "title", "GN", "initials"})
        name.push_back({type, "1"});
    for (const char* type : {"emailAddress", "DC"})
        name.push_back({type, "1", V_ASN1_IA5STRING});
    EXPECT_EQ(X500(name), u"CN=1, SN=1, SERIALNUMBER=1, L=1, S=1, STREET=1, O=1, OU=1, T=1, G=1, I=1, E=1, DC=1");
}

TEST(Names, ValuesThatAreNoStringsStandInHexadecimal) {
    // CN = OCTET STRING 01 AB, then a Name cut short.
    const Bytes octets{0x30, 0x0D, 0x31, 0x0B, 0x30, 0x09, 0x06, 0x03, 0x55, 0x04, 0x03, 0x04, 0x02, 0x01, 0xAB};
    EXPECT_EQ(CertNameToStrW(octets, CERT_X500_NAME_STR), u"CN=#040201AB");
    EXPECT_EQ(CertNameToStrW(ByteView(octets).first(12), CERT_X500_NAME_STR), u"");
    EXPECT_NE(GetLastError(), ERROR_SUCCESS);
    EXPECT_EQ(CertNameToStrW(Bytes{0x30, 0x00}, CERT_X500_NAME_STR), u"");
}

TEST(Names, MatchWhateverTheirEncoding) {
    const auto canonical = [](const Name& name) { return posix::CanonicalName(Issued(name).SubjectDer()); };
    const auto plain = canonical({{"CN", "Ivan  Petrov "}, {"O", "Фирма"}});
    EXPECT_EQ(plain, canonical({{"CN", "ivan petrov", V_ASN1_PRINTABLESTRING}, {"O", "Фирма", V_ASN1_BMPSTRING}}));
    EXPECT_NE(plain, canonical({{"CN", "ivanpetrov"}, {"O", "Фирма"}}));
    EXPECT_NE(plain, canonical({{"O", "Фирма"}, {"CN", "ivan petrov"}}));
    const auto joined = canonical({{"CN", "a"}, {"O", "b", V_ASN1_UTF8STRING, true}});
    EXPECT_NE(joined, canonical({{"CN", "a"}, {"O", "b"}}));
    EXPECT_EQ(joined, canonical({{"O", "b"}, {"CN", "a", V_ASN1_UTF8STRING, true}}));
}

}  // namespace

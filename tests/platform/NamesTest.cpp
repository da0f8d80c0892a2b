#include <gtest/gtest.h>

#include "platform/Certificates.h"
#include "platform/Text.h"
#include "platform/posix/Native.h"
#include "tests/support/ChainWorld.h"

namespace {

using namespace platform;
using tests::Name;
using tests::NameEntry;

tests::Certificate Issued(const Name& subject, const std::string& subjectAltName = {}) {
    return tests::Issue(
        {.subject = subject, .key = tests::TestKey(tests::KeyType::p256), .subjectAltName = subjectAltName});
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
    const auto ca = tests::Issue({.subject = {{"CN", "CA"}, {"O", "Издател"}}, .ca = true});
    const auto context = ContextOf(tests::Issue({.subject = {{"CN", "Иван"}, Mail("e@x.bg")}}, ca));
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

#include "platform/Certificates.h"

#include <gtest/gtest.h>
#include <openssl/x509v3.h>

#include <filesystem>
#include <iostream>
#include <thread>

#include "platform/Hash.h"
#include "platform/posix/Ber.h"
#include "platform/posix/CertificateFile.h"
#include "platform/posix/Native.h"
#include "tests/support/Pki.h"

namespace {

using namespace platform;
using posix::BerReader;

CertificateContext Context(const tests::CertificateSpec& spec) {
    return CertCreateCertificateContext(tests::Issue(spec).Der());
}

Bytes Reversed(ByteView bytes) {
    return {bytes.rbegin(), bytes.rend()};
}

// --- BER ---

Bytes Time(std::uint8_t identifier, std::string_view text) {
    Bytes der{identifier, static_cast<std::uint8_t>(text.size())};
    der.insert(der.end(), text.begin(), text.end());
    return der;
}

TEST(Ber, TimesAreReadInEveryFormThatMakersUse) {
    struct Case {
        std::uint8_t tag;
        const char* text;
        std::int64_t unix;
    };
    for (const auto& [tag, text, unix] : {
             Case{posix::kBerUtcTime, "700101000000Z", 0},
             Case{posix::kBerUtcTime, "500101000000Z", -631152000},
             Case{posix::kBerUtcTime, "491231235959Z", 2524607999},
             Case{posix::kBerUtcTime, "2403011200Z", 1709294400},
             Case{posix::kBerUtcTime, "240301140000+0200", 1709294400},
             Case{posix::kBerGeneralizedTime, "20240301120000Z", 1709294400},
             Case{posix::kBerGeneralizedTime, "20240301120000", 1709294400},
             Case{posix::kBerGeneralizedTime, "2024030112Z", 1709294400},
             Case{posix::kBerGeneralizedTime, "20240229000000Z", 1709164800},
             Case{posix::kBerGeneralizedTime, "99991231235959Z", 253402300799},
         }) {
        const Bytes der = Time(tag, text);
        BerReader reader(der);
        const auto moment = posix::ReadTime(reader);
        ASSERT_TRUE(moment) << text;
        EXPECT_EQ(UnixFromFileTime(*moment), unix) << text;
    }
    const Bytes fraction = Time(posix::kBerGeneralizedTime, "19700101000000.0000025Z");
    BerReader reader(fraction);
    EXPECT_EQ(posix::ReadTime(reader), kFileTimeOfUnixEpoch + 25);
    const Bytes ancient = Time(posix::kBerGeneralizedTime, "00010101000000Z");
    BerReader early(ancient);
    EXPECT_EQ(posix::ReadTime(early), FILETIME{0});
}

TEST(Ber, WhatIsNoTimeIsRefused) {
    for (const char* text : {"", "Z", "241301000000Z", "240230000000Z", "240301240000Z", "240301006000Z",
                             "240301000000X", "240301000000+2500", "24030100000", "240301000000Zx", "2403010000-0"}) {
        const Bytes der = Time(posix::kBerUtcTime, text);
        BerReader reader(der);
        SetLastError(0);
        EXPECT_FALSE(posix::ReadTime(reader)) << text;
        EXPECT_NE(GetLastError(), ERROR_SUCCESS);
    }
}

TEST(Ber, ObjectIdentifiersOfAnyLengthAreSpelled) {
    const std::vector<std::pair<Bytes, std::string>> cases = {
        {{0x2A, 0x86, 0x48, 0x86, 0xF7, 0x0D}, "1.2.840.113549"},
        {{0x88, 0x37, 0x03}, "2.999.3"},
        {{0x55, 0x1D, 0x25, 0x00}, "2.5.29.37.0"},
        // The largest UUID.
        {{0x69, 0x83, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF,
          0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0x7F},
         "2.25.340282366920938463463374607431768211455"},
    };
    for (const auto& [content, text] : cases)
        EXPECT_EQ(posix::OidText(content), text);
    EXPECT_FALSE(posix::OidText(Bytes{}));
    EXPECT_FALSE(posix::OidText(Bytes{0x2A, 0x86}));
}

TEST(Ber, HostileLengthsAndDepthsEndInAnError) {
    const Bytes beyond{0x30, 0x88, 0x7F, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF};
    const Bytes wider{0x30, 0x8A, 1, 0, 0, 0, 0, 0, 0, 0, 0, 0};
    Bytes deep;
    for (int i = 0; i < 10'000; ++i)
        deep.insert(deep.end(), {0x30, 0x80});
    Bytes definite;  // nested, each a little shorter than the one around it
    for (int i = 0; i < 10'000; ++i)
        definite.insert(definite.end(), {0x30, 0x82, 0xFF, 0xFF});
    for (const Bytes& bytes : {beyond, wider, deep, definite, Bytes{0x30}, Bytes{0x30, 0x81}, Bytes{0x04, 0x80, 0, 0},
                               Bytes{0x3F, 0x01, 0x00}}) {
        SetLastError(0);
        EXPECT_FALSE(BerReader(bytes).Next());
        EXPECT_NE(GetLastError(), ERROR_SUCCESS);
        EXPECT_FALSE(CertCreateCertificateContext(bytes));
        EXPECT_EQ(posix::ReadCertificateFile(bytes).Count(), 0U);
    }
}

// --- Contexts ---

TEST(CertificateContext, FieldsAreThoseOfTheCertificate) {
    const tests::CertificateSpec spec{.subject = {{"CN", "Иван"}, {"O", "Фирма"}},
                                      .serial = {0x02, 0x01},
                                      .notBefore = 1'700'000'000,
                                      .notAfter = 2'600'000'000,
                                      .key = tests::TestKey(tests::KeyType::p256),
                                      .extendedKeyUsage = "critical,timeStamping"};
    const auto certificate = tests::Issue(spec);
    const auto context = CertCreateCertificateContext(certificate.Der());
    ASSERT_TRUE(context);
    const CERT_INFO& info = context.Info();
    EXPECT_EQ(CopyOf(context.Encoded()), certificate.Der());
    EXPECT_EQ(info.dwVersion, 2U);
    EXPECT_EQ(info.SerialNumber, (Bytes{0x01, 0x02}));
    EXPECT_EQ(info.Subject, certificate.SubjectDer());
    EXPECT_EQ(info.Issuer, certificate.SubjectDer());
    EXPECT_EQ(UnixFromFileTime(info.NotBefore), spec.notBefore);
    EXPECT_EQ(UnixFromFileTime(info.NotAfter), spec.notAfter);
    EXPECT_EQ(info.SubjectPublicKeyInfo, certificate.PublicKeyInfo());
    EXPECT_EQ(info.SignatureAlgorithm, "1.2.840.10045.4.3.2");
    const CERT_EXTENSION* usage = CertFindExtension(context, "2.5.29.37");
    ASSERT_NE(usage, nullptr);
    EXPECT_TRUE(usage->fCritical);
    EXPECT_EQ(CertFindExtension(context, "2.5.29.17"), nullptr);
    ASSERT_NE(posix::NativeOf(context), nullptr);
    EXPECT_EQ(X509_cmp(posix::NativeOf(context), certificate.Native()), 0);
    EXPECT_EQ(CertVerifyTimeValidity(info.NotBefore - 1, context), -1);
    EXPECT_EQ(CertVerifyTimeValidity(info.NotBefore, context), 0);
    EXPECT_EQ(CertVerifyTimeValidity(info.NotAfter, context), 0);
    EXPECT_EQ(CertVerifyTimeValidity(info.NotAfter + 1, context), 1);
}

TEST(CertificateContext, EveryTruncationAndEveryTrailingByteIsRefused) {
    Bytes der = tests::Issue({.key = tests::TestKey(tests::KeyType::p256)}).Der();
    for (std::size_t size = 0; size < der.size(); ++size) {
        SetLastError(0);
        ASSERT_FALSE(CertCreateCertificateContext(ByteView(der).first(size))) << size;
        ASSERT_EQ(GetLastError(), CRYPT_E_ASN1_EOD) << size;
    }
    der.push_back(0);
    EXPECT_FALSE(CertCreateCertificateContext(der));
    EXPECT_EQ(GetLastError(), CRYPT_E_BAD_ENCODE);
    EXPECT_FALSE(CertCreateCertificateContext(AsBytes("not a certificate")));
    EXPECT_EQ(GetLastError(), CRYPT_E_ASN1_BADTAG);
}

// Whatever byte of a certificate is overwritten: refused with a code, or read without harm.
TEST(CertificateContext, DamageIsRefusedOrHarmless) {
    const Bytes der = tests::Issue({.key = tests::TestKey(tests::KeyType::p256)}).Der();
    int refused = 0;
    for (std::size_t i = 0; i < der.size(); ++i) {
        for (const std::uint8_t value : {0x00, 0x30, 0x7F, 0x80, 0xFF}) {
            Bytes damaged = der;
            damaged[i] = value;
            SetLastError(0);
            const auto context = CertCreateCertificateContext(damaged);
            if (!context) {
                ASSERT_NE(GetLastError(), ERROR_SUCCESS);
                ++refused;
                continue;
            }
            CertGetNameStringW(context, CERT_NAME_SIMPLE_DISPLAY_TYPE, 0);
            CertNameToStrW(context.Info().Issuer, CERT_X500_NAME_STR);
            CertGetEnhancedKeyUsage(context);
            CertGetIntendedKeyUsage(context);
        }
    }
    EXPECT_GT(refused, 100);
}

// Our decoder of the fields beside the crypto library's, over every certificate of the collection.
TEST(CertificateContext, FieldsAgreeWithTheCryptoLibrary) {
    const auto folder = std::filesystem::path(NORVIK_SOURCE_DIR) / "../shared/corpora/chains";
    if (!std::filesystem::exists(folder)) GTEST_SKIP() << "no corpus at " << folder;
    std::size_t compared = 0;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(folder)) {
        if (!entry.is_regular_file()) continue;
        const auto file = posix::ReadCertificateFile(AsBytes(tests::ReadFile(entry.path())));
        for (const auto& context : file.certificates) {
            SCOPED_TRACE(entry.path());
            const X509* native = posix::NativeOf(context);
            if (native == nullptr) continue;  // damaged on purpose below the fields
            const CERT_INFO& info = context.Info();
            const ASN1_INTEGER* serial = X509_get0_serialNumber(native);
            const auto moment = [](const ASN1_TIME* time) {
                tm parts{};
                const std::int64_t seconds = ASN1_TIME_to_tm(time, &parts) == 1 ? timegm(&parts) : 0;
                return std::max(seconds, UnixFromFileTime(0));  // the earliest that a FILETIME tells
            };
            EXPECT_EQ(info.dwVersion, static_cast<std::uint32_t>(X509_get_version(native)));
            // The library strips the sign octet, ours stays as stored.
            Bytes digits = Reversed(info.SerialNumber);
            while (digits.size() > 1 && digits[0] == 0)
                digits.erase(digits.begin());
            if (ASN1_STRING_type(serial) == V_ASN1_INTEGER) {
                EXPECT_EQ(digits, Bytes(ASN1_STRING_get0_data(serial),
                                        ASN1_STRING_get0_data(serial) + ASN1_STRING_length(serial)));
            }
            EXPECT_EQ(UnixFromFileTime(info.NotBefore), moment(X509_get0_notBefore(native)));
            EXPECT_EQ(UnixFromFileTime(info.NotAfter), moment(X509_get0_notAfter(native)));
            EXPECT_EQ(info.Subject, posix::EncodeDer<i2d_X509_NAME>(X509_get_subject_name(native)));
            EXPECT_EQ(info.SubjectPublicKeyInfo, posix::EncodeDer<i2d_X509_PUBKEY>(X509_get_X509_PUBKEY(native)));
            EXPECT_EQ(info.rgExtension.size(), static_cast<std::size_t>(std::max(X509_get_ext_count(native), 0)));
            ++compared;
        }
    }
    std::cout << compared << " certificates compared\n";
    EXPECT_GT(compared, 300U);
}

TEST(CertificateContext, PropertiesAreComputedOrSharedByCopies) {
    const auto certificate = tests::Issue({.key = tests::TestKey(tests::KeyType::p256), .subjectKeyId = false});
    const auto context = CertCreateCertificateContext(certificate.Der());
    const auto copy = context;
    EXPECT_EQ(tests::Hex(*CertGetCertificateContextProperty(context, CERT_SHA1_HASH_PROP_ID)),
              certificate.Thumbprint());
    EXPECT_EQ(CertGetCertificateContextProperty(context, CERT_SHA256_HASH_PROP_ID),
              Digest(HashAlgorithm::sha256, certificate.Der()));
    EXPECT_EQ(CertGetCertificateContextProperty(context, CERT_KEY_IDENTIFIER_PROP_ID),
              Digest(HashAlgorithm::sha1, certificate.PublicKeyInfo()));
    EXPECT_FALSE(CertGetCertificateContextProperty(context, CERT_FRIENDLY_NAME_PROP_ID));
    EXPECT_EQ(GetLastError(), CRYPT_E_NOT_FOUND);
    EXPECT_TRUE(CertSetCertificateContextProperty(context, CERT_FRIENDLY_NAME_PROP_ID, Bytes{1, 2}));
    EXPECT_EQ(CertGetCertificateContextProperty(copy, CERT_FRIENDLY_NAME_PROP_ID), (Bytes{1, 2}));
    EXPECT_TRUE(CertSetCertificateContextProperty(copy, CERT_FRIENDLY_NAME_PROP_ID, std::nullopt));
    EXPECT_FALSE(CertGetCertificateContextProperty(context, CERT_FRIENDLY_NAME_PROP_ID));
    const auto withId = Context({.key = tests::TestKey(tests::KeyType::p256)});
    EXPECT_EQ(CertGetCertificateContextProperty(withId, CERT_KEY_IDENTIFIER_PROP_ID),
              DecodeOctetString(CertFindExtension(withId, "2.5.29.14")->Value));
}

TEST(CertificateContext, SeveralThreadsMayReadOne) {
    const auto context = Context({});
    std::vector<std::thread> threads;
    std::atomic<int> same = 0;
    for (int i = 0; i < 8; ++i) {
        threads.emplace_back([&] {
            const bool native = posix::NativeOf(context) != nullptr;
            const bool hash = posix::Sha1Of(context).size() == 20;
            CertSetCertificateContextProperty(context, CERT_FRIENDLY_NAME_PROP_ID, Bytes{1});
            if (native && hash) ++same;
        });
    }
    for (auto& thread : threads)
        thread.join();
    EXPECT_EQ(same, 8);
}

// --- Extensions ---

TEST(Extensions, AuthorityKeyIdentifiersOfBothGenerations) {
    const Bytes both{0x30, 0x0C, 0x80, 0x02, 0xAA, 0xBB, 0xA1, 0x02, 0x30, 0x00, 0x82, 0x02, 0x01, 0x02};
    for (const auto& decode : {DecodeAuthorityKeyId, DecodeAuthorityKeyId2}) {
        const auto identifier = decode(both);
        ASSERT_TRUE(identifier);
        EXPECT_EQ(identifier->KeyId, (Bytes{0xAA, 0xBB}));
        EXPECT_EQ(identifier->CertSerialNumber, (Bytes{0x02, 0x01}));
        const auto empty = decode(Bytes{0x30, 0x00});
        ASSERT_TRUE(empty);
        EXPECT_TRUE(empty->KeyId.empty() && empty->CertSerialNumber.empty());
        EXPECT_FALSE(decode(Bytes{0x30, 0x03, 0x80, 0x05, 0xAA}));
        EXPECT_FALSE(decode(Bytes{0x04, 0x00}));
    }
}

TEST(Extensions, CrlDistributionPointsKeepOrderAndKinds) {
    const auto context = Context({.crlUrls = {"ldap://directory/cn=CA?certificateRevocationList", "http://a/б.crl"}});
    const auto points = DecodeCrlDistPoints(CertFindExtension(context, "2.5.29.31")->Value);
    ASSERT_TRUE(points);
    std::vector<std::u16string> urls;
    for (const auto& point : *points) {
        EXPECT_EQ(point.dwDistPointNameChoice, CRL_DIST_POINT_FULL_NAME);
        for (const auto& name : point.FullName) {
            if (name.dwAltNameChoice == CERT_ALT_NAME_URL) urls.push_back(name.pwszText);
        }
    }
    EXPECT_EQ(urls,
              (std::vector<std::u16string>{u"ldap://directory/cn=CA?certificateRevocationList", u"http://a/б.crl"}));

    // A point relative to the issuer, one with reasons alone, one with a directory name before its URL.
    const Bytes relative{0x30, 0x06, 0x30, 0x04, 0xA0, 0x02, 0xA1, 0x00};
    EXPECT_EQ(DecodeCrlDistPoints(relative)->at(0).dwDistPointNameChoice, 2U);
    const Bytes reasons{0x30, 0x06, 0x30, 0x04, 0x81, 0x02, 0x01, 0x06};
    EXPECT_EQ(DecodeCrlDistPoints(reasons)->at(0).dwDistPointNameChoice, 0U);
    const Bytes mixed{0x30, 0x0E, 0x30, 0x0C, 0xA0, 0x0A, 0xA0, 0x08, 0xA4, 0x02, 0x30, 0x00, 0x86, 0x02, 'h', ':'};
    const auto names = DecodeCrlDistPoints(mixed)->at(0).FullName;
    ASSERT_EQ(names.size(), 2U);
    EXPECT_EQ(names[0].dwAltNameChoice, CERT_ALT_NAME_DIRECTORY_NAME);
    EXPECT_EQ(names[1].pwszText, u"h:");
    EXPECT_FALSE(DecodeCrlDistPoints(Bytes{0x30, 0x04, 0x30, 0x04, 0xA0, 0x02}));
}

TEST(Extensions, EnhancedKeyUsageComesFromTheExtensionElseFromTheProperty) {
    const Bytes timeStamping{0x30, 0x0A, 0x06, 0x08, 0x2B, 0x06, 0x01, 0x05, 0x05, 0x07, 0x03, 0x08};
    const auto none = Context({});
    SetLastError(0);
    const auto unrestricted = CertGetEnhancedKeyUsage(none);
    ASSERT_TRUE(unrestricted);
    EXPECT_TRUE(unrestricted->empty());
    EXPECT_EQ(GetLastError(), CRYPT_E_NOT_FOUND);
    CertSetCertificateContextProperty(none, CERT_ENHKEY_USAGE_PROP_ID, timeStamping);
    EXPECT_EQ(CertGetEnhancedKeyUsage(none), std::vector<std::string>{"1.3.6.1.5.5.7.3.8"});
    const auto mail = Context({.extendedKeyUsage = "emailProtection,1.2.3.4"});
    CertSetCertificateContextProperty(mail, CERT_ENHKEY_USAGE_PROP_ID, timeStamping);
    EXPECT_EQ(CertGetEnhancedKeyUsage(mail), (std::vector<std::string>{"1.3.6.1.5.5.7.3.4", "1.2.3.4"}));
    const auto broken = Context({.extra = {{"2.5.29.37", false, {0x30, 0x05, 0x06}}}});
    SetLastError(0);
    EXPECT_FALSE(CertGetEnhancedKeyUsage(broken));
    EXPECT_NE(GetLastError(), ERROR_SUCCESS);
}

TEST(Extensions, KeyUsageBitsStandAsEncoded) {
    EXPECT_EQ(CertGetIntendedKeyUsage(Context({.keyUsage = "digitalSignature,nonRepudiation"})), 0x00C0);
    EXPECT_EQ(CertGetIntendedKeyUsage(Context({.keyUsage = "keyAgreement,decipherOnly"})), 0x8008);
    EXPECT_FALSE(CertGetIntendedKeyUsage(Context({.keyUsage = ""})));
    EXPECT_EQ(GetLastError(), CRYPT_E_NOT_FOUND);
}

TEST(ObjectIdentifiers, AreFoundByNumberAndGroup) {
    const auto name = [](std::string_view oid, std::uint32_t group) {
        const auto* info = CryptFindOIDInfo(CRYPT_OID_INFO_OID_KEY, oid, group);
        return info == nullptr ? std::u16string() : std::u16string(info->pwszName);
    };
    EXPECT_EQ(name("1.2.840.113549.1.1.11", 0), u"sha256RSA");
    EXPECT_EQ(name("1.2.840.113549.1.1.10", CRYPT_SIGN_ALG_OID_GROUP_ID), u"RSASSA-PSS");
    EXPECT_EQ(name("2.16.840.1.101.3.4.2.1", 0), u"sha256");
    EXPECT_EQ(name("1.3.6.1.4.1.311.10.3.12", CRYPT_ENHKEY_USAGE_OID_GROUP_ID), u"Document Signing");
    EXPECT_EQ(name("1.3.6.1.4.1.311.10.3.12", CRYPT_HASH_ALG_OID_GROUP_ID), u"");
    EXPECT_EQ(name("1.2.3.4", 0), u"");
    EXPECT_EQ(GetLastError(), CRYPT_E_NOT_FOUND);
    EXPECT_EQ(CryptFindOIDInfo(5, "1.3.6.1.5.5.7.3.1", CRYPT_ENHKEY_USAGE_OID_GROUP_ID), nullptr);
}

}  // namespace

#include "platform/Certificates.h"

#include <gtest/gtest.h>
#include <openssl/x509v3.h>

#include <algorithm>
#include <filesystem>

#include "platform/Hash.h"
#include "platform/posix/Ber.h"
#include "platform/posix/CertificateFile.h"
#include "platform/posix/Native.h"
#include "tests/support/Corpora.h"
#include "tests/support/LastError.h"
#include "tests/support/Pki.h"

namespace {

using namespace platform;
using posix::BerReader;

CertificateContext Context(const tests::CertificateSpec& spec) {
    return CertCreateCertificateContext(tests::Issue(spec).Der());
}

// --- BER ---

TEST(Ber, TimesAreReadInEveryFormThatMakersUseAndNoOther) {
    constexpr std::int64_t kNone = -1;
    const struct {
        std::uint8_t tag;
        std::string_view text;
        std::int64_t unix;
    } cases[] = {
        {posix::kBerUtcTime, "700101000000Z", 0},
        {posix::kBerUtcTime, "500101000000Z", -631152000},
        {posix::kBerUtcTime, "491231235959Z", 2524607999},
        {posix::kBerUtcTime, "2403011200Z", 1709294400},
        {posix::kBerUtcTime, "240301140000+0200", 1709294400},
        {posix::kBerGeneralizedTime, "20240301120000Z", 1709294400},
        {posix::kBerGeneralizedTime, "20240301120000", 1709294400},
        {posix::kBerGeneralizedTime, "20240301120000.0000025Z", 1709294400},
        {posix::kBerGeneralizedTime, "2024030112Z", 1709294400},
        {posix::kBerGeneralizedTime, "20240229000000Z", 1709164800},
        {posix::kBerGeneralizedTime, "99991231235959Z", 253402300799},
        {posix::kBerGeneralizedTime, "00010101000000Z", UnixFromFileTime(0)},
        {posix::kBerUtcTime, "", kNone},
        {posix::kBerUtcTime, "241301000000Z", kNone},
        {posix::kBerUtcTime, "240230000000Z", kNone},
        {posix::kBerUtcTime, "240301240000Z", kNone},
        {posix::kBerUtcTime, "240301006000Z", kNone},
        {posix::kBerUtcTime, "240301000000X", kNone},
        {posix::kBerUtcTime, "240301000000+2500", kNone},
        {posix::kBerUtcTime, "24030100000", kNone},
        {posix::kBerUtcTime, "240301000000Zx", kNone},
    };
    for (const auto& [tag, text, unix] : cases) {
        Bytes der{tag, static_cast<std::uint8_t>(text.size())};
        der.insert(der.end(), text.begin(), text.end());
        BerReader reader(der);
        SetLastError(0);
        const auto moment = posix::ReadTime(reader);
        EXPECT_EQ(moment ? UnixFromFileTime(*moment) : kNone, unix) << text;
        EXPECT_EQ(GetLastError() == ERROR_SUCCESS, unix != kNone) << text;
    }
}

TEST(Ber, HostileLengthsAndDepthsEndInAnError) {
    Bytes indefinite, definite;  // nested, each a little shorter than the one around it
    for (int i = 0; i < 10'000; ++i) {
        indefinite.insert(indefinite.end(), {0x30, 0x80});
        definite.insert(definite.end(), {0x30, 0x82, 0xFF, 0xFF});
    }
    const Bytes beyond{0x30, 0x88, 0x7F, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF},
        wider{0x30, 0x8A, 1, 0, 0, 0, 0, 0, 0, 0, 0, 0};
    for (const Bytes& bytes : {beyond, wider, indefinite, definite, Bytes{0x30}, Bytes{0x30, 0x81},
                               Bytes{0x04, 0x80, 0, 0}, Bytes{0x3F, 0x01, 0x00}}) {
        SetLastError(0);
        EXPECT_FALSE(BerReader(bytes).Next());
        EXPECT_NE(GetLastError(), ERROR_SUCCESS);
        EXPECT_FALSE(CertCreateCertificateContext(bytes));
        EXPECT_EQ(posix::ReadCertificateFile(bytes).Count(), 0U);
    }
}

// --- Contexts ---

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
    EXPECT_EQ(CertVerifyTimeValidity(info.NotBefore - 1, context), -1);
    EXPECT_EQ(CertVerifyTimeValidity(info.NotBefore, context), 0);
    EXPECT_EQ(CertVerifyTimeValidity(info.NotAfter, context), 0);
    EXPECT_EQ(CertVerifyTimeValidity(info.NotAfter + 1, context), 1);
}

TEST(CertificateContext, FieldsOfOthersCertificatesAgreeWithTheCryptoLibrary) {
    const auto folder = tests::Corpus("chains");
    if (!std::filesystem::exists(folder)) GTEST_SKIP() << "no corpus at " << folder;
    std::size_t compared = 0;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(folder)) {
        if (!entry.is_regular_file()) continue;
        SCOPED_TRACE(entry.path());
        for (const auto& context : posix::ReadCertificateFile(AsBytes(tests::ReadFile(entry.path()))).certificates) {
            ExpectFieldsOf(context);
            ++compared;
        }
    }
    EXPECT_GT(compared, 300U);
}

TEST(CertificateContext, EveryTruncationAndEveryTrailingByteIsRefused) {
    Bytes der = tests::Issue({.key = tests::TestKey(tests::KeyType::p256)}).Der();
    for (std::size_t size = 0; size < der.size(); ++size) {
        EXPECT_FAILS(CertCreateCertificateContext(ByteView(der).first(size)), CRYPT_E_ASN1_EOD) << size;
    }
    der.push_back(0);
    EXPECT_FAILS(CertCreateCertificateContext(der), CRYPT_E_BAD_ENCODE);
    EXPECT_FAILS(CertCreateCertificateContext(AsBytes("not a certificate")), CRYPT_E_ASN1_BADTAG);
}

TEST(CertificateContext, PropertiesAreComputedOrSharedByCopies) {
    const auto certificate = tests::Issue({.key = tests::TestKey(tests::KeyType::p256), .subjectKeyId = false});
    const auto context = CertCreateCertificateContext(certificate.Der()), copy = context;
    EXPECT_EQ(CertGetCertificateContextProperty(context, CERT_SHA256_HASH_PROP_ID),
              Digest(HashAlgorithm::sha256, certificate.Der()));
    EXPECT_EQ(CertGetCertificateContextProperty(context, CERT_KEY_IDENTIFIER_PROP_ID),
              Digest(HashAlgorithm::sha1, certificate.PublicKeyInfo()));
    EXPECT_TRUE(CertSetCertificateContextProperty(context, CERT_FRIENDLY_NAME_PROP_ID, Bytes{1, 2}));
    EXPECT_EQ(CertGetCertificateContextProperty(copy, CERT_FRIENDLY_NAME_PROP_ID), (Bytes{1, 2}));
    EXPECT_TRUE(CertSetCertificateContextProperty(copy, CERT_FRIENDLY_NAME_PROP_ID, std::nullopt));
    EXPECT_FAILS(CertGetCertificateContextProperty(context, CERT_FRIENDLY_NAME_PROP_ID), CRYPT_E_NOT_FOUND);
    const auto withId = Context({.key = tests::TestKey(tests::KeyType::p256)});
    EXPECT_EQ(CertGetCertificateContextProperty(withId, CERT_KEY_IDENTIFIER_PROP_ID),
              DecodeOctetString(CertFindExtension(withId, "2.5.29.14")->Value));
}

TEST(Extensions, KeyUsageBitsStandAsEncoded) {
    EXPECT_EQ(CertGetIntendedKeyUsage(Context({.keyUsage = "digitalSignature,nonRepudiation"})), 0x00C0);
    EXPECT_EQ(CertGetIntendedKeyUsage(Context({.keyUsage = "keyAgreement,decipherOnly"})), 0x8008);
    EXPECT_FAILS(CertGetIntendedKeyUsage(Context({.keyUsage = ""})), CRYPT_E_NOT_FOUND);
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

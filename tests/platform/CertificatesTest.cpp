#include "platform/Certificates.h"

#include <gtest/gtest.h>
#include <openssl/x509v3.h>

#include "platform/Hash.h"
#include "platform/posix/CertificateFile.h"
#include "platform/posix/Native.h"
#include "tests/support/Corpora.h"
#include "tests/support/LastError.h"
#include "tests/support/Pki.h"

namespace {

using namespace platform;

CertificateContext Context(tests::CertificateSpec spec) {
    spec.key = tests::TestKey(tests::KeyType::p256);
    return CertCreateCertificateContext(tests::Issue(spec).Der());
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

}  // namespace

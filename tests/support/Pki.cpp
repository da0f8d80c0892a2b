#include "tests/support/Pki.h"

#include <openssl/pem.h>
#include <openssl/rand.h>
#include <openssl/rsa.h>
#include <openssl/x509v3.h>

#include <array>

#include "platform/posix/OpenSsl.h"
#include "tests/support/PkiFault.h"

namespace tests {
namespace {

using platform::posix::BioPtr;
using platform::posix::EncodeDer;
using platform::posix::Owned;
using platform::posix::X509CrlPtr;
using platform::posix::X509Ptr;
using ObjectPtr = Owned<ASN1_OBJECT, ASN1_OBJECT_free>;
using OctetsPtr = Owned<ASN1_OCTET_STRING, ASN1_OCTET_STRING_free>;
using IntegerPtr = Owned<ASN1_INTEGER, ASN1_INTEGER_free>;
using TimePtr = Owned<ASN1_TIME, ASN1_TIME_free>;
using NamePtr = Owned<X509_NAME, X509_NAME_free>;
using EntryPtr = Owned<X509_NAME_ENTRY, X509_NAME_ENTRY_free>;
using ExtensionPtr = Owned<X509_EXTENSION, X509_EXTENSION_free>;
using StringPtr = Owned<ASN1_STRING, ASN1_STRING_free>;
using DigestPtr = Owned<EVP_MD_CTX, EVP_MD_CTX_free>;

EntryPtr MakeEntry(const NameEntry& entry) {
    const ObjectPtr type(OBJ_txt2obj(entry.type.c_str(), 0));
    Require(type != nullptr, ("attribute type " + entry.type).c_str());
    const auto* bytes = reinterpret_cast<const unsigned char*>(entry.value.data());
    const int size = static_cast<int>(entry.value.size());
    if (entry.stringType != V_ASN1_BMPSTRING && entry.stringType != V_ASN1_UNIVERSALSTRING)
        return EntryPtr(X509_NAME_ENTRY_create_by_OBJ(nullptr, type.get(), entry.stringType, bytes, size));
    ASN1_STRING* converted = nullptr;
    ASN1_mbstring_copy(&converted, bytes, size, MBSTRING_UTF8, ASN1_tag2bit(entry.stringType));
    const StringPtr owner(converted);
    Require(converted != nullptr, "name text");
    return EntryPtr(X509_NAME_ENTRY_create_by_OBJ(nullptr, type.get(), entry.stringType,
                                                  ASN1_STRING_get0_data(converted), ASN1_STRING_length(converted)));
}

NamePtr MakeName(const Name& name) {
    NamePtr made(X509_NAME_new());
    for (const NameEntry& entry : name) {
        const EntryPtr native = MakeEntry(entry);
        Require(native && X509_NAME_add_entry(made.get(), native.get(), -1, entry.joinsPrevious ? -1 : 0) == 1, "name");
    }
    return made;
}

TimePtr MakeTime(std::int64_t moment) {
    TimePtr time(ASN1_TIME_set(nullptr, static_cast<time_t>(moment)));
    Require(time != nullptr, "time");
    return time;
}

IntegerPtr MakeInteger(ByteView bigEndian) {
    const Owned<BIGNUM, BN_free> number(BN_bin2bn(bigEndian.data(), static_cast<int>(bigEndian.size()), nullptr));
    IntegerPtr integer(BN_to_ASN1_INTEGER(number.get(), nullptr));
    Require(integer != nullptr, "integer");
    return integer;
}

Bytes RandomSerial() {
    Bytes serial(8);
    Require(RAND_bytes(serial.data(), static_cast<int>(serial.size())) == 1, "serial number");
    serial[0] = static_cast<std::uint8_t>((serial[0] & 0x7F) | 0x40);
    return serial;
}

ExtensionPtr MakeExtension(const Extension& extension) {
    const ObjectPtr oid(OBJ_txt2obj(extension.oid.c_str(), 0));
    const OctetsPtr value(ASN1_OCTET_STRING_new());
    ASN1_OCTET_STRING_set(value.get(), extension.value.data(), static_cast<int>(extension.value.size()));
    ExtensionPtr made(X509_EXTENSION_create_by_OBJ(nullptr, oid.get(), extension.critical ? 1 : 0, value.get()));
    Require(made != nullptr, ("extension " + extension.oid).c_str());
    return made;
}

void AddByText(X509* certificate, X509* issuer, int nid, const std::string& text) {
    if (text.empty()) return;
    X509V3_CTX context;
    X509V3_set_ctx(&context, issuer, certificate, nullptr, nullptr, 0);
    X509V3_set_ctx_nodb(&context);
    const ExtensionPtr extension(X509V3_EXT_conf_nid(nullptr, &context, nid, text.c_str()));
    Require(extension && X509_add_ext(certificate, extension.get(), -1) == 1, text.c_str());
}

std::string Joined(const std::vector<std::string>& urls, const std::string& before) {
    std::string text;
    for (const std::string& url : urls)
        text += (text.empty() ? "" : ",") + before + url;
    return text;
}

std::string BasicConstraints(const CertificateSpec& spec) {
    if (!spec.ca) return {};
    std::string text = *spec.ca ? "critical,CA:TRUE" : "CA:FALSE";
    if (spec.pathLength) text += ",pathlen:" + std::to_string(*spec.pathLength);
    return text;
}

std::string KeyUsage(const CertificateSpec& spec) {
    if (spec.keyUsage != "default") return spec.keyUsage;
    return spec.ca.value_or(false) ? "critical,keyCertSign,cRLSign" : "critical,digitalSignature,nonRepudiation";
}

void AddExtensions(X509* certificate, X509* issuer, const CertificateSpec& spec) {
    AddByText(certificate, issuer, NID_basic_constraints, BasicConstraints(spec));
    AddByText(certificate, issuer, NID_key_usage, KeyUsage(spec));
    AddByText(certificate, issuer, NID_ext_key_usage, spec.extendedKeyUsage);
    if (spec.subjectKeyId) AddByText(certificate, issuer, NID_subject_key_identifier, "hash");
    // An issuer without an identifier of its own leaves nothing to point at; and for the certificate itself OpenSSL
    // would write an extension with nothing in it, which others take for damaged.
    const bool issuerHasId = issuer != certificate && X509_get_ext_by_NID(issuer, NID_subject_key_identifier, -1) >= 0;
    if (spec.authorityKeyId && issuerHasId) AddByText(certificate, issuer, NID_authority_key_identifier, "keyid");
    AddByText(certificate, issuer, NID_subject_alt_name, spec.subjectAltName);
    AddByText(certificate, issuer, NID_name_constraints, spec.nameConstraints);
    AddByText(certificate, issuer, NID_policy_constraints, spec.policyConstraints);
    AddByText(certificate, issuer, NID_crl_distribution_points, Joined(spec.crlUrls, "URI:"));
    std::vector<std::string> access;
    for (const std::string& url : spec.ocspUrls)
        access.push_back("OCSP;URI:" + url);
    for (const std::string& url : spec.caIssuersUrls)
        access.push_back("caIssuers;URI:" + url);
    AddByText(certificate, issuer, NID_info_access, Joined(access, ""));
    for (const Extension& extension : spec.extra)
        Require(X509_add_ext(certificate, MakeExtension(extension).get(), -1) == 1, extension.oid.c_str());
}

DigestPtr SigningContext(EVP_PKEY* key, const char* hash, bool pss) {
    DigestPtr context(EVP_MD_CTX_new());
    EVP_PKEY_CTX* keyContext = nullptr;
    Require(EVP_DigestSignInit_ex(context.get(), &keyContext, hash, nullptr, nullptr, key, nullptr) == 1, "signature");
    if (pss) {
        Require(EVP_PKEY_CTX_set_rsa_padding(keyContext, RSA_PKCS1_PSS_PADDING) == 1 &&
                    EVP_PKEY_CTX_set_rsa_pss_saltlen(keyContext, RSA_PSS_SALTLEN_DIGEST) == 1,
                "PSS signature");
    }
    return context;
}

// The signature is the last thing in both structures; its last byte can change without breaking the encoding.
void BreakSignature(Bytes& der) {
    der.back() ^= 0x01;
}

Certificate Build(const CertificateSpec& spec, const Certificate* issuer) {
    const X509Ptr certificate(X509_new());
    X509* x509 = certificate.get();
    X509* issuerX509 = issuer == nullptr ? x509 : issuer->Native();
    const NamePtr subject = MakeName(spec.subject);
    Require(X509_set_version(x509, X509_VERSION_3) == 1 && X509_set_subject_name(x509, subject.get()) == 1, "subject");
    if (spec.issuerName) {
        X509_set_issuer_name(x509, MakeName(*spec.issuerName).get());
    } else {
        X509_set_issuer_name(x509, X509_get_subject_name(issuerX509));
    }
    X509_set_serialNumber(x509, MakeInteger(spec.serial.empty() ? RandomSerial() : spec.serial).get());
    X509_set1_notBefore(x509, MakeTime(spec.notBefore).get());
    X509_set1_notAfter(x509, MakeTime(spec.notAfter).get());
    Require(X509_set_pubkey(x509, spec.key.get()) == 1, "public key");
    AddExtensions(x509, issuerX509, spec);
    const Key& issuerKey = issuer == nullptr ? spec.key : issuer->PrivateKey();
    const DigestPtr signing =
        SigningContext(spec.signWith ? spec.signWith.get() : issuerKey.get(), spec.hash, spec.pss);
    Require(X509_sign_ctx(x509, signing.get()) > 0, "certificate");
    Bytes der = EncodeDer<i2d_X509>(x509);
    if (spec.breakSignature) BreakSignature(der);
    return Certificate(der, spec.key);
}

void AddRevoked(X509_CRL* crl, const RevokedEntry& entry) {
    Owned<X509_REVOKED, X509_REVOKED_free> revoked(X509_REVOKED_new());
    X509_REVOKED_set_serialNumber(revoked.get(), MakeInteger(entry.serial).get());
    X509_REVOKED_set_revocationDate(revoked.get(), MakeTime(entry.when).get());
    if (entry.reason >= 0) {
        const Owned<ASN1_ENUMERATED, ASN1_ENUMERATED_free> reason(ASN1_ENUMERATED_new());
        ASN1_ENUMERATED_set(reason.get(), entry.reason);
        Require(X509_REVOKED_add1_ext_i2d(revoked.get(), NID_crl_reason, reason.get(), 0, 0) == 1, "CRL reason");
    }
    if (!entry.issuer.empty()) {
        const unsigned char* in = entry.issuer.data();
        const Owned<GENERAL_NAMES, GENERAL_NAMES_free> names(GENERAL_NAMES_new());
        GENERAL_NAME* name = GENERAL_NAME_new();
        GENERAL_NAME_set0_value(name, GEN_DIRNAME, d2i_X509_NAME(nullptr, &in, static_cast<long>(entry.issuer.size())));
        Require(sk_GENERAL_NAME_push(names.get(), name) > 0 &&
                    X509_REVOKED_add1_ext_i2d(revoked.get(), NID_certificate_issuer, names.get(), 1, 0) == 1,
                "CRL entry's issuer");
    }
    Require(X509_CRL_add0_revoked(crl, revoked.get()) == 1, "CRL entry");
    static_cast<void>(revoked.release());
}

}  // namespace

Certificate::Certificate(ByteView der, Key key) : der_(der.begin(), der.end()), key_(std::move(key)) {
    const unsigned char* cursor = der_.data();
    certificate_.reset(d2i_X509(nullptr, &cursor, static_cast<long>(der_.size())), X509_free);
    Require(certificate_ != nullptr, "certificate from its bytes");
}

std::string Certificate::Pem() const {
    return PemOf("CERTIFICATE", der_);
}

Bytes Certificate::Pkcs8() const {
    const Owned<PKCS8_PRIV_KEY_INFO, PKCS8_PRIV_KEY_INFO_free> info(EVP_PKEY2PKCS8(key_.get()));
    Require(info != nullptr, "PKCS#8");
    return EncodeDer<i2d_PKCS8_PRIV_KEY_INFO>(info.get());
}

std::string Certificate::KeyPem() const {
    return PemOf("PRIVATE KEY", Pkcs8());
}

std::string Certificate::Thumbprint() const {
    std::array<unsigned char, EVP_MAX_MD_SIZE> digest{};
    unsigned int size = 0;
    Require(X509_digest(certificate_.get(), EVP_sha1(), digest.data(), &size) == 1, "thumbprint");
    return Hex({digest.data(), size});
}

Bytes Certificate::Serial() const {
    const ASN1_INTEGER* serial = X509_get0_serialNumber(certificate_.get());
    return {ASN1_STRING_get0_data(serial), ASN1_STRING_get0_data(serial) + ASN1_STRING_length(serial)};
}

std::string Certificate::SerialHex() const {
    return Hex(Serial());
}

Bytes Certificate::SubjectDer() const {
    return EncodeDer<i2d_X509_NAME>(X509_get_subject_name(certificate_.get()));
}

Bytes Certificate::PublicKeyInfo() const {
    return EncodeDer<i2d_X509_PUBKEY>(X509_get_X509_PUBKEY(certificate_.get()));
}

Certificate Issue(const CertificateSpec& spec, const Certificate& issuer) {
    return Build(spec, &issuer);
}

Certificate Issue(const CertificateSpec& spec) {
    return Build(spec, nullptr);
}

Bytes MakeCrl(const Certificate& issuer, const CrlSpec& spec) {
    const X509CrlPtr crl(X509_CRL_new());
    X509_CRL_set_version(crl.get(), X509_CRL_VERSION_2);
    X509_CRL_set_issuer_name(crl.get(), X509_get_subject_name(issuer.Native()));
    X509_CRL_set1_lastUpdate(crl.get(), MakeTime(spec.thisUpdate).get());
    if (spec.nextUpdate) X509_CRL_set1_nextUpdate(crl.get(), MakeTime(*spec.nextUpdate).get());
    for (const RevokedEntry& entry : spec.revoked)
        AddRevoked(crl.get(), entry);
    X509_CRL_sort(crl.get());
    const IntegerPtr number(ASN1_INTEGER_new());
    ASN1_INTEGER_set_int64(number.get(), spec.number);
    Require(X509_CRL_add1_ext_i2d(crl.get(), NID_crl_number, number.get(), 0, 0) == 1, "CRL number");
    X509V3_CTX context;
    X509V3_set_ctx(&context, issuer.Native(), nullptr, nullptr, crl.get(), 0);
    if (X509_get_ext_by_NID(issuer.Native(), NID_subject_key_identifier, -1) >= 0) {
        const ExtensionPtr keyId(X509V3_EXT_conf_nid(nullptr, &context, NID_authority_key_identifier, "keyid"));
        Require(keyId && X509_CRL_add_ext(crl.get(), keyId.get(), -1) == 1, "CRL issuer's key");
    }
    for (const Extension& extension : spec.extra)
        Require(X509_CRL_add_ext(crl.get(), MakeExtension(extension).get(), -1) == 1, extension.oid.c_str());
    const Key& key = spec.signWith ? spec.signWith : issuer.PrivateKey();
    Require(X509_CRL_sign_ctx(crl.get(), SigningContext(key.get(), spec.hash, false).get()) > 0, "CRL");
    Bytes der = EncodeDer<i2d_X509_CRL>(crl.get());
    if (spec.breakSignature) BreakSignature(der);
    return der;
}

std::string PemOf(const char* label, ByteView der) {
    const BioPtr bio(BIO_new(BIO_s_mem()));
    Require(PEM_write_bio(bio.get(), label, "", der.data(), static_cast<long>(der.size())) > 0, "PEM");
    char* text = nullptr;
    const long size = BIO_get_mem_data(bio.get(), &text);
    return {text, static_cast<std::size_t>(size)};
}

std::string Hex(ByteView bytes) {
    constexpr const char* kDigits = "0123456789ABCDEF";
    std::string text;
    for (const std::uint8_t byte : bytes) {
        text += kDigits[byte >> 4];
        text += kDigits[byte & 0x0F];
    }
    return text;
}

}  // namespace tests

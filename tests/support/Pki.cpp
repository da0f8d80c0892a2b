#include "tests/support/Pki.h"

#include <openssl/pem.h>
#include <openssl/rand.h>
#include <openssl/rsa.h>
#include <openssl/x509v3.h>

#include <atomic>
#include <map>
#include <mutex>

#include "tests/support/Made.h"

namespace tests {
namespace {

using platform::posix::EncodeDer;

void AddEntry(X509_NAME* name, const NameEntry& entry) {
    const auto type = Made<ASN1_OBJECT_free>(OBJ_txt2obj(entry.type.c_str(), 0), "attribute type " + entry.type);
    ByteView stored = platform::AsBytes(entry.value);
    platform::posix::Owned<ASN1_STRING, ASN1_STRING_free> owner;
    if (entry.stringType == V_ASN1_BMPSTRING || entry.stringType == V_ASN1_UNIVERSALSTRING) {
        ASN1_STRING* converted = nullptr;
        ASN1_mbstring_copy(&converted, stored.data(), static_cast<int>(stored.size()), MBSTRING_UTF8,
                           ASN1_tag2bit(entry.stringType));
        owner = Made<ASN1_STRING_free>(converted, "name text");
        stored = {ASN1_STRING_get0_data(converted), static_cast<std::size_t>(ASN1_STRING_length(converted))};
    }
    Require(X509_NAME_add_entry_by_OBJ(name, type.get(), entry.stringType, stored.data(),
                                       static_cast<int>(stored.size()), -1, entry.joinsPrevious ? -1 : 0) == 1,
            "name");
}

auto MakeName(const Name& name) {
    auto made = Made<X509_NAME_free>(X509_NAME_new(), "name");
    for (const NameEntry& entry : name)
        AddEntry(made.get(), entry);
    return made;
}

auto MakeInteger(ByteView bigEndian) {
    const auto number =
        Made<BN_free>(BN_bin2bn(bigEndian.data(), static_cast<int>(bigEndian.size()), nullptr), "number");
    return Made<ASN1_INTEGER_free>(BN_to_ASN1_INTEGER(number.get(), nullptr), "integer");
}

Bytes RandomSerial() {
    Bytes serial(8);
    Require(RAND_bytes(serial.data(), static_cast<int>(serial.size())) == 1, "serial number");
    serial[0] = static_cast<std::uint8_t>((serial[0] & 0x7F) | 0x40);
    return serial;
}

// {"URI:", {a, b}} as OpenSSL's configuration has it: "URI:a,URI:b".
std::string Joined(std::initializer_list<std::pair<std::string, std::vector<std::string>>> lists) {
    std::string text;
    for (const auto& [before, urls] : lists)
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
    // An issuer without an identifier of its own leaves nothing to point at; and for the certificate itself OpenSSL
    // would write an extension with nothing in it, which others take for damaged.
    const bool issuerHasId = issuer != certificate && X509_get_ext_by_NID(issuer, NID_subject_key_identifier, -1) >= 0;
    const std::pair<int, std::string> texts[] = {
        {NID_basic_constraints, BasicConstraints(spec)},
        {NID_key_usage, KeyUsage(spec)},
        {NID_ext_key_usage, spec.extendedKeyUsage},
        {NID_subject_key_identifier, spec.subjectKeyId ? "hash" : ""},
        {NID_authority_key_identifier, spec.authorityKeyId && issuerHasId ? "keyid" : ""},
        {NID_subject_alt_name, spec.subjectAltName},
        {NID_name_constraints, spec.nameConstraints},
        {NID_policy_constraints, spec.policyConstraints},
        {NID_crl_distribution_points, Joined({{"URI:", spec.crlUrls}})},
        {NID_info_access, Joined({{"OCSP;URI:", spec.ocspUrls}, {"caIssuers;URI:", spec.caIssuersUrls}})},
    };
    X509V3_CTX context;
    X509V3_set_ctx(&context, issuer, certificate, nullptr, nullptr, 0);
    X509V3_set_ctx_nodb(&context);
    for (const auto& [nid, text] : texts) {
        if (text.empty()) continue;
        const auto extension =
            Made<X509_EXTENSION_free>(X509V3_EXT_conf_nid(nullptr, &context, nid, text.c_str()), text);
        Require(X509_add_ext(certificate, extension.get(), -1) == 1, text);
    }
    for (const Extension& extension : spec.extra)
        Require(X509_add_ext(certificate, MadeExtension(extension).get(), -1) == 1, extension.oid);
}

auto SigningContext(EVP_PKEY* key, const char* hash, bool pss) {
    auto context = Made<EVP_MD_CTX_free>(EVP_MD_CTX_new(), "signature");
    EVP_PKEY_CTX* keyContext = nullptr;
    Require(EVP_DigestSignInit_ex(context.get(), &keyContext, hash, nullptr, nullptr, key, nullptr) == 1, "signature");
    Require(!pss || (EVP_PKEY_CTX_set_rsa_padding(keyContext, RSA_PKCS1_PSS_PADDING) == 1 &&
                     EVP_PKEY_CTX_set_rsa_pss_saltlen(keyContext, RSA_PSS_SALTLEN_DIGEST) == 1),
            "PSS signature");
    return context;
}

// The signature is the last thing in certificates and CRLs; its last byte can change without breaking the encoding.
Bytes PerhapsBroken(Bytes der, bool broken) {
    if (broken) der.back() ^= 0x01;
    return der;
}

void AddRevoked(X509_CRL* crl, const RevokedEntry& entry) {
    auto revoked = Made<X509_REVOKED_free>(X509_REVOKED_new(), "CRL entry");
    X509_REVOKED_set_serialNumber(revoked.get(), MakeInteger(entry.serial).get());
    X509_REVOKED_set_revocationDate(revoked.get(), MadeTime(entry.when).get());
    if (entry.reason >= 0) {
        const auto reason = Made<ASN1_ENUMERATED_free>(ASN1_ENUMERATED_new(), "CRL reason");
        ASN1_ENUMERATED_set(reason.get(), entry.reason);
        Require(X509_REVOKED_add1_ext_i2d(revoked.get(), NID_crl_reason, reason.get(), 0, 0) == 1, "CRL reason");
    }
    if (!entry.issuer.empty()) {
        const unsigned char* in = entry.issuer.data();
        const auto names = Made<GENERAL_NAMES_free>(GENERAL_NAMES_new(), "CRL entry's issuer");
        GENERAL_NAME* name = GENERAL_NAME_new();
        GENERAL_NAME_set0_value(name, GEN_DIRNAME, d2i_X509_NAME(nullptr, &in, static_cast<long>(entry.issuer.size())));
        Require(sk_GENERAL_NAME_push(names.get(), name) > 0 &&
                    X509_REVOKED_add1_ext_i2d(revoked.get(), NID_certificate_issuer, names.get(), 1, 0) == 1,
                "CRL entry's issuer");
    }
    Require(X509_CRL_add0_revoked(crl, revoked.get()) == 1, "CRL entry");
    static_cast<void>(revoked.release());
}

Name Ours(const char* name) {
    return {{"C", "BG", V_ASN1_PRINTABLESTRING}, {"O", "Norvik Test"}, {"CN", name}};
}

}  // namespace

Key GenerateKey(KeyType type) {
    if (type == KeyType::rsa2048) return Made<EVP_PKEY_free>(EVP_RSA_gen(2048), "RSA key");
    if (type == KeyType::p256) return Made<EVP_PKEY_free>(EVP_EC_gen("P-256"), "P-256 key");
    if (type == KeyType::p384) return Made<EVP_PKEY_free>(EVP_EC_gen("P-384"), "P-384 key");
    throw std::invalid_argument("a key that takes too long to make");
}

Key TestKey(KeyType type, unsigned index) {
    static std::mutex mutex;
    static std::map<std::pair<KeyType, unsigned>, Key> keys;
    static const std::map<KeyType, std::string> files = {{KeyType::rsa2048, "rsa2048-"},
                                                         {KeyType::rsa3072, "rsa3072-"},
                                                         {KeyType::rsa4096, "rsa4096-"},
                                                         {KeyType::dsa2048, "dsa2048-"}};
    const std::lock_guard lock(mutex);
    Key& key = keys[{type, index}];
    const auto file = files.find(type);
    if (!key && file == files.end()) key = GenerateKey(type);
    if (key) return key;
    const auto pem = ReadFile(NORVIK_SOURCE_DIR "/tests/data/keys/" + file->second + std::to_string(index) + ".pem");
    const auto bio = Made<BIO_free_all>(BIO_new_mem_buf(pem.data(), static_cast<int>(pem.size())), "key");
    return key = Made<EVP_PKEY_free>(PEM_read_bio_PrivateKey(bio.get(), nullptr, nullptr, nullptr), "key");
}

Certificate::Certificate(ByteView der, Key key) : der_(der.begin(), der.end()), key_(std::move(key)) {
    const unsigned char* cursor = der_.data();
    certificate_ = Made<X509_free>(d2i_X509(nullptr, &cursor, static_cast<long>(der_.size())), "certificate");
}

Bytes Certificate::Pkcs8() const {
    const auto info = Made<PKCS8_PRIV_KEY_INFO_free>(EVP_PKEY2PKCS8(key_.get()), "PKCS#8");
    return EncodeDer<i2d_PKCS8_PRIV_KEY_INFO>(info.get());
}

std::string Certificate::Thumbprint() const {
    Bytes digest(20);
    Require(X509_digest(certificate_.get(), EVP_sha1(), digest.data(), nullptr) == 1, "thumbprint");
    return Hex(digest);
}

Bytes Certificate::Serial() const {
    const ASN1_INTEGER* serial = X509_get0_serialNumber(certificate_.get());
    return {ASN1_STRING_get0_data(serial), ASN1_STRING_get0_data(serial) + ASN1_STRING_length(serial)};
}

Bytes Certificate::SubjectDer() const {
    return EncodeDer<i2d_X509_NAME>(X509_get_subject_name(certificate_.get()));
}

Bytes Certificate::PublicKeyInfo() const {
    return EncodeDer<i2d_X509_PUBKEY>(X509_get_X509_PUBKEY(certificate_.get()));
}

Certificate Issue(const CertificateSpec& spec, const Certificate& issuer) {
    const auto certificate = Made<X509_free>(X509_new(), "certificate");
    X509* x509 = certificate.get();
    const bool selfSigned = issuer.Native() == nullptr;
    X509* issuerX509 = selfSigned ? x509 : issuer.Native();
    X509_set_version(x509, X509_VERSION_3);
    X509_set_subject_name(x509, MakeName(spec.subject).get());
    const auto issuerName = MakeName(spec.issuerName.value_or(Name()));
    X509_set_issuer_name(x509, spec.issuerName ? issuerName.get() : X509_get_subject_name(issuerX509));
    X509_set_serialNumber(x509, MakeInteger(spec.serial.empty() ? RandomSerial() : spec.serial).get());
    X509_set1_notBefore(x509, MadeTime(spec.notBefore).get());
    X509_set1_notAfter(x509, MadeTime(spec.notAfter).get());
    Require(X509_set_pubkey(x509, spec.key.get()) == 1, "public key");
    AddExtensions(x509, issuerX509, spec);
    const Key& issuerKey = selfSigned ? spec.key : issuer.PrivateKey();
    const auto signing = SigningContext((spec.signWith ? spec.signWith : issuerKey).get(), spec.hash, spec.pss);
    Require(X509_sign_ctx(x509, signing.get()) > 0, "certificate");
    return Certificate(PerhapsBroken(EncodeDer<i2d_X509>(x509), spec.breakSignature), spec.key);
}

Bytes MakeCrl(const Certificate& issuer, const CrlSpec& spec) {
    const auto crl = Made<X509_CRL_free>(X509_CRL_new(), "CRL");
    X509_CRL_set_version(crl.get(), X509_CRL_VERSION_2);
    X509_CRL_set_issuer_name(crl.get(), X509_get_subject_name(issuer.Native()));
    X509_CRL_set1_lastUpdate(crl.get(), MadeTime(spec.thisUpdate).get());
    if (spec.nextUpdate) X509_CRL_set1_nextUpdate(crl.get(), MadeTime(*spec.nextUpdate).get());
    for (const RevokedEntry& entry : spec.revoked)
        AddRevoked(crl.get(), entry);
    X509_CRL_sort(crl.get());
    const auto number = Made<ASN1_INTEGER_free>(ASN1_INTEGER_new(), "CRL number");
    ASN1_INTEGER_set_int64(number.get(), spec.number);
    Require(X509_CRL_add1_ext_i2d(crl.get(), NID_crl_number, number.get(), 0, 0) == 1, "CRL number");
    X509V3_CTX context;
    X509V3_set_ctx(&context, issuer.Native(), nullptr, nullptr, crl.get(), 0);
    if (X509_get_ext_by_NID(issuer.Native(), NID_subject_key_identifier, -1) >= 0) {
        const auto keyId = Made<X509_EXTENSION_free>(
            X509V3_EXT_conf_nid(nullptr, &context, NID_authority_key_identifier, "keyid"), "CRL issuer's key");
        Require(X509_CRL_add_ext(crl.get(), keyId.get(), -1) == 1, "CRL issuer's key");
    }
    for (const Extension& extension : spec.extra)
        Require(X509_CRL_add_ext(crl.get(), MadeExtension(extension).get(), -1) == 1, extension.oid);
    const Key& key = spec.signWith ? spec.signWith : issuer.PrivateKey();
    Require(X509_CRL_sign_ctx(crl.get(), SigningContext(key.get(), spec.hash, false).get()) > 0, "CRL");
    return PerhapsBroken(EncodeDer<i2d_X509_CRL>(crl.get()), spec.breakSignature);
}

std::string PemOf(const char* label, ByteView der) {
    const auto bio = Made<BIO_free_all>(BIO_new(BIO_s_mem()), "PEM");
    Require(PEM_write_bio(bio.get(), label, "", der.data(), static_cast<long>(der.size())) > 0, "PEM");
    char* text = nullptr;
    const long size = BIO_get_mem_data(bio.get(), &text);
    return {text, static_cast<std::size_t>(size)};
}

std::string Hex(ByteView bytes) {
    std::string text(2 * bytes.size() + 1, '\0');
    OPENSSL_buf2hexstr_ex(text.data(), text.size(), nullptr, bytes.data(), bytes.size(), '\0');
    text.pop_back();
    return text;
}

void InstallCertificate(const Profile& profile, const std::string& store, const Certificate& certificate,
                        bool withKey) {
    const auto base = profile.Stores() / store / certificate.Thumbprint();
    profile.Write(base.string() + ".cer", platform::AsText(certificate.Der()));
    if (!withKey) return;
    const auto key = profile.Write(base.string() + ".key", certificate.KeyPem());
    std::filesystem::permissions(key, std::filesystem::perms::owner_read | std::filesystem::perms::owner_write);
}

void InstallCrl(const Profile& profile, const std::string& store, ByteView crl) {
    static std::atomic<int> count = 0;
    profile.Write(profile.Stores() / store / (std::to_string(++count) + ".crl"), platform::AsText(crl));
}

StandardPki::StandardPki(KeyType keyType, Key (*makeKey)(KeyType, unsigned))
    : root(Issue({.subject = Ours("Norvik Test Root"),
                  .notAfter = std::time(nullptr) + 20 * 365 * kDay,
                  .key = makeKey(KeyType::rsa2048, 0),
                  .ca = true})),
      ca(Issue({.subject = Ours("Norvik Test CA"),
                .notAfter = std::time(nullptr) + 10 * 365 * kDay,
                .key = makeKey(KeyType::rsa2048, 1),
                .ca = true,
                .pathLength = 0},
               root)),
      signer(Issue({.subject = {{"C", "BG", V_ASN1_PRINTABLESTRING},
                                {"O", "Норвик ЕООД"},
                                {"serialNumber", "PNOBG-0000000000", V_ASN1_PRINTABLESTRING},
                                {"CN", "Иван Петров"}},
                    .key = makeKey(keyType, keyType == KeyType::rsa2048 ? 2 : 0),
                    .extendedKeyUsage = "clientAuth,emailProtection",
                    .subjectAltName = "email:ivan.petrov@example.bg"},
                   ca)),
      tsa(Issue({.subject = Ours("Norvik Test TSA"),
                 .key = makeKey(KeyType::rsa2048, 3),
                 .extendedKeyUsage = "critical,timeStamping"},
                ca)) {}

void StandardPki::Install(const Profile& profile) const {
    InstallCertificate(profile, "ROOT", root);
    InstallCertificate(profile, "CA", ca);
    InstallCertificate(profile, "MY", signer, true);
}

void StandardPki::InstallCrls(const Profile& profile, const std::vector<RevokedEntry>& revoked) const {
    InstallCrl(profile, "CA", MakeCrl(root));
    InstallCrl(profile, "CA", MakeCrl(ca, {.revoked = revoked}));
}

}  // namespace tests

#include "platform/Certificates.h"

#include <openssl/provider.h>

#include <algorithm>

#include "platform/Hash.h"
#include "platform/posix/Ber.h"
#include "platform/posix/DecodedTable.h"
#include "platform/posix/EncodedKeys.h"
#include "platform/posix/Native.h"

namespace platform {
namespace {

using posix::BerReader;

Bytes Reversed(ByteView bytes) {
    return {bytes.rbegin(), bytes.rend()};
}

bool BadEncoding() {
    SetLastError(CRYPT_E_BAD_ENCODE);
    return false;
}

bool AtEnd(const BerReader& reader) {
    return reader.AtEnd() || BadEncoding();
}

// AlgorithmIdentifier: the OID, and the parameters as they stand.
bool DecodeAlgorithm(BerReader& reader, std::string& oid, Bytes& parameters) {
    const auto sequence = reader.Next(posix::kBerSequence);
    if (!sequence) return false;
    BerReader inside(sequence->content);
    auto text = posix::ReadOid(inside);
    if (!text) return false;
    oid = std::move(*text);
    parameters = CopyOf(inside.Rest());
    return true;
}

bool DecodeValidity(BerReader& reader, CERT_INFO& info) {
    const auto validity = reader.Next(posix::kBerSequence);
    if (!validity) return false;
    BerReader inside(validity->content);
    const auto from = posix::ReadTime(inside);
    const auto to = from ? posix::ReadTime(inside) : std::nullopt;
    if (!to) return false;
    info.NotBefore = *from;
    info.NotAfter = *to;
    return AtEnd(inside);
}

bool DecodeExtension(BerReader& reader, CERT_EXTENSION& extension) {
    const auto sequence = reader.Next(posix::kBerSequence);
    if (!sequence) return false;
    BerReader inside(sequence->content);
    auto oid = posix::ReadOid(inside);
    if (!oid) return false;
    extension.pszObjId = std::move(*oid);
    if (inside.NextIs(posix::kBerBoolean)) {
        const auto critical = inside.Next();
        if (!critical || critical->content.size() != 1) return BadEncoding();
        extension.fCritical = critical->content[0] != 0;
    }
    const auto value = inside.Next(posix::kBerOctetString);
    if (!value) return false;
    extension.Value = CopyOf(value->content);
    return AtEnd(inside);
}

// The optional fields behind the key: unique identifiers, which nobody uses, and extensions.
bool DecodeOptionalFields(BerReader& reader, CERT_INFO& info) {
    for (const unsigned number : {1U, 2U}) {
        const bool present =
            reader.NextIs(posix::BerContextPrimitive(number)) || reader.NextIs(posix::BerContext(number));
        if (present && !reader.Next()) return false;
    }
    if (reader.NextIs(posix::BerContext(3))) {
        const auto tagged = reader.Next();
        if (!tagged || !posix::DecodeExtensions(tagged->content, info.rgExtension)) return false;
    }
    return AtEnd(reader);
}

bool DecodeName(BerReader& reader, Bytes& name) {
    const auto element = reader.Next(posix::kBerSequence);
    if (element) name = CopyOf(element->whole);
    return element.has_value();
}

bool DecodeToBeSigned(ByteView content, CERT_INFO& info) {
    BerReader reader(content);
    if (reader.NextIs(posix::BerContext(0))) {
        const auto tagged = reader.Next();
        if (!tagged) return false;
        BerReader inside(tagged->content);
        const auto version = posix::ReadUnsigned(inside);
        if (!version || *version > 0xFFFF || !inside.AtEnd()) return BadEncoding();
        info.dwVersion = static_cast<std::uint32_t>(*version);
    }
    const auto serial = reader.Next(posix::kBerInteger);
    if (!serial) return false;
    info.SerialNumber = Reversed(serial->content);
    std::string innerAlgorithm;  // RFC 5280, 4.1.1.2: the outer one; that they agree is the chain's business
    Bytes innerParameters;
    if (!DecodeAlgorithm(reader, innerAlgorithm, innerParameters)) return false;
    if (!DecodeName(reader, info.Issuer) || !DecodeValidity(reader, info) || !DecodeName(reader, info.Subject))
        return false;
    const auto key = reader.Next(posix::kBerSequence);
    if (!key) return false;
    info.SubjectPublicKeyInfo = CopyOf(key->whole);
    return DecodeOptionalFields(reader, info);
}

// RFC 5280, 4.1. The signature value itself is left to the crypto library.
bool DecodeCertificate(ByteView encoded, CERT_INFO& info) {
    const auto certificate = posix::ReadSingleElement(encoded, posix::kBerSequence);
    if (!certificate) return false;
    BerReader reader(certificate->content);
    const auto toBeSigned = reader.Next(posix::kBerSequence);
    if (!toBeSigned || !DecodeToBeSigned(toBeSigned->content, info)) return false;
    if (!DecodeAlgorithm(reader, info.SignatureAlgorithm, info.SignatureParameters)) return false;
    if (!reader.Next(posix::kBerBitString)) return false;
    return AtEnd(reader);
}

// A library context without algorithms. A certificate that is decoded in the usual one gets its public key looked up
// among all decoders for keys there, which takes several times as long as all the rest. Never destroyed: certificates
// live as long as the process.
OSSL_LIB_CTX* WithoutAlgorithms() {
    static OSSL_LIB_CTX* const context = [] {
        OSSL_LIB_CTX* empty = OSSL_LIB_CTX_new();
        if (empty && !OSSL_PROVIDER_load(empty, "null")) {
            OSSL_LIB_CTX_free(empty);
            empty = nullptr;
        }
        return empty;
    }();
    return context;
}

posix::X509Ptr DecodeIn(OSSL_LIB_CTX* context, ByteView der) {
    posix::X509Ptr certificate(X509_new_ex(context, nullptr));
    X509* filled = certificate.get();
    const unsigned char* in = der.data();
    // On failure the library frees what it was given.
    if (filled && !d2i_X509(&filled, &in, static_cast<long>(der.size()))) (void)certificate.release();
    if (in != der.data() + der.size()) certificate.reset();
    // The library reads the extensions at the first question about one, which fails if there is no SHA-1 to be had;
    // what it read stands all the same, and later questions are answered.
    if (certificate) (void)X509_check_purpose(certificate.get(), -1, 0);
    posix::DrainErrorQueue();
    return certificate;
}

Bytes KeyIdentifierOf(const CertificateContext& certificate) {
    if (const CERT_EXTENSION* extension = CertFindExtension(certificate, "2.5.29.14")) {
        if (auto identifier = DecodeOctetString(extension->Value)) return std::move(*identifier);
    }
    return Digest(HashAlgorithm::sha1, certificate.Info().SubjectPublicKeyInfo);
}

}  // namespace

bool posix::DecodeExtensions(ByteView sequence, std::vector<CERT_EXTENSION>& extensions) {
    const auto list = ReadSingleElement(sequence, kBerSequence);
    if (!list) return false;
    for (BerReader reader(list->content); !reader.AtEnd();) {
        if (!DecodeExtension(reader, extensions.emplace_back())) return false;
    }
    return true;
}

namespace posix {

// What was asked for its keys once is likely to come again; a store that is merely listed keeps nothing.
X509* DecodedCertificate::Native() const {
    return x509_.Get(encoded, [this](ByteView der) {
        KeepDecoded(shared_from_this());
        return DecodeIn(WithoutAlgorithms(), der);
    });
}

EVP_PKEY* DecodedCertificate::PublicKey() const {
    if (!Native()) return nullptr;
    return publicKey_.Get(info.SubjectPublicKeyInfo, DecodePublicKey);
}

bool DecodedCertificate::Knows(const Proof& proof) const {
    const std::scoped_lock lock(proofLock_);
    return proof_ == proof;
}

void DecodedCertificate::Keep(Proof proof) const {
    const std::scoped_lock lock(proofLock_);
    proof_ = std::move(proof);
}

const Bytes& DecodedCertificate::Sha1() const {
    std::call_once(hashOnce_, [&] { sha1_ = Digest(HashAlgorithm::sha1, encoded); });
    return sha1_;
}

const Bytes& DecodedCertificate::Sha256() const {
    std::call_once(sha256Once_, [&] { sha256_ = Digest(HashAlgorithm::sha256, encoded); });
    return sha256_;
}

const std::u16string& DecodedCertificate::CanonicalSubject() const {
    std::call_once(subjectOnce_, [&] { canonicalSubject_ = CanonicalName(info.Subject); });
    return canonicalSubject_;
}

const std::u16string& DecodedCertificate::CanonicalIssuer() const {
    std::call_once(issuerOnce_, [&] { canonicalIssuer_ = CanonicalName(info.Issuer); });
    return canonicalIssuer_;
}

X509* NativeOf(const CertificateContext& certificate) {
    return certificate ? certificate.Backend()->decoded->Native() : nullptr;
}

EVP_PKEY* PublicKeyOf(const CertificateContext& certificate) {
    return certificate ? certificate.Backend()->decoded->PublicKey() : nullptr;
}

X509Ptr DecodeWithKey(const CertificateContext& certificate) {
    return certificate ? DecodeIn(nullptr, certificate.Encoded()) : nullptr;
}

CertificateContext WithOwnState(const CertificateContext& certificate, std::shared_ptr<PrivateKey::Impl> key) {
    if (!certificate) return {};
    auto impl = std::make_shared<CertificateContext::Impl>();
    impl->decoded = certificate.Backend()->decoded;
    {
        const std::scoped_lock lock(certificate.Backend()->propertiesLock);
        impl->properties = certificate.Backend()->properties;
    }
    impl->attachedKey = std::move(key);
    return CertificateContext(std::move(impl));
}

std::shared_ptr<PrivateKey::Impl> AttachedKeyOf(const CertificateContext& certificate) {
    if (!certificate) return nullptr;
    const std::scoped_lock lock(certificate.Backend()->propertiesLock);
    return certificate.Backend()->attachedKey;
}

const Bytes& Sha1Of(const CertificateContext& certificate) {
    return certificate.Backend()->decoded->Sha1();
}

}  // namespace posix

ByteView CertificateContext::Encoded() const {
    return impl_ ? ByteView(impl_->decoded->encoded) : ByteView();
}

const CERT_INFO& CertificateContext::Info() const {
    return impl_->decoded->info;
}

CertStore CertificateContext::Store() const {
    return origin_ ? CertStore(origin_->store) : CertStore();
}

CertificateContext CertificateContext::FromStore(const CertStore& store) const {
    CertificateContext copy = *this;
    copy.origin_ = store ? std::make_shared<const Origin>(Origin{store.Backend()}) : nullptr;
    return copy;
}

bool operator==(const CertificateContext& a, const CertificateContext& b) {
    if (!a || !b) return !a && !b;
    return a.impl_->decoded == b.impl_->decoded || a.impl_->decoded->encoded == b.impl_->decoded->encoded;
}

CertificateContext CertCreateCertificateContext(ByteView der) {
    auto impl = std::make_shared<CertificateContext::Impl>();
    impl->decoded = posix::FindDecoded(der);
    if (!impl->decoded) {
        auto decoded = std::make_shared<posix::DecodedCertificate>();
        if (!DecodeCertificate(der, decoded->info)) return {};
        decoded->encoded = CopyOf(der);
        impl->decoded = std::move(decoded);
    }
    return CertificateContext(std::move(impl));
}

std::optional<Bytes> CertGetCertificateContextProperty(const CertificateContext& certificate, std::uint32_t property) {
    if (!certificate) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return std::nullopt;
    }
    switch (property) {
        case CERT_SHA1_HASH_PROP_ID:
            return posix::Sha1Of(certificate);
        case CERT_MD5_HASH_PROP_ID:
            return Digest(HashAlgorithm::md5, certificate.Encoded());
        case CERT_SHA256_HASH_PROP_ID:
            return certificate.Backend()->decoded->Sha256();
        default:
            break;
    }
    const CertificateContext::Impl& impl = *certificate.Backend();
    {
        const std::scoped_lock lock(impl.propertiesLock);
        const auto found = impl.properties.find(property);
        if (found != impl.properties.end()) return found->second;
    }
    if (property == CERT_KEY_IDENTIFIER_PROP_ID) return KeyIdentifierOf(certificate);
    SetLastError(CRYPT_E_NOT_FOUND);
    return std::nullopt;
}

bool CertSetCertificateContextProperty(const CertificateContext& certificate, std::uint32_t property,
                                       std::optional<Bytes> value) {
    if (!certificate) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return false;
    }
    const CertificateContext::Impl& impl = *certificate.Backend();
    const std::scoped_lock lock(impl.propertiesLock);
    if (value) {
        impl.properties[property] = std::move(*value);
    } else {
        impl.properties.erase(property);
    }
    return true;
}

int CertVerifyTimeValidity(FILETIME moment, const CertificateContext& certificate) {
    const CERT_INFO& info = certificate.Info();
    if (moment < info.NotBefore) return -1;
    return moment > info.NotAfter ? 1 : 0;
}

}  // namespace platform

#include "toolkit/cms/SignatureAlgorithms.h"

namespace toolkit::cms {

using platform::HashAlgorithm;
using platform::KeyAlgorithm;

namespace {

std::string_view RsaOid(HashAlgorithm hash) {
    if (hash == HashAlgorithm::sha256) return "1.2.840.113549.1.1.11";
    if (hash == HashAlgorithm::sha384) return "1.2.840.113549.1.1.12";
    if (hash == HashAlgorithm::sha512) return "1.2.840.113549.1.1.13";
    return "1.2.840.113549.1.1.1";
}

std::string_view EcdsaOid(HashAlgorithm hash) {
    if (hash == HashAlgorithm::sha256) return "1.2.840.10045.4.3.2";
    if (hash == HashAlgorithm::sha384) return "1.2.840.10045.4.3.3";
    if (hash == HashAlgorithm::sha512) return "1.2.840.10045.4.3.4";
    return "1.2.840.10045.4.1";
}

std::string_view DsaOid(HashAlgorithm hash) {
    return hash == HashAlgorithm::sha256 ? "2.16.840.1.101.3.4.3.2" : "1.2.840.10040.4.3";
}

}  // namespace

std::string_view SignatureOid(KeyAlgorithm key, HashAlgorithm hash) {
    switch (key) {
        case KeyAlgorithm::rsa:
            return RsaOid(hash);
        case KeyAlgorithm::ecdsa:
            return EcdsaOid(hash);
        case KeyAlgorithm::dsa:
            return DsaOid(hash);
    }
    return {};
}

void WriteSignatureAlgorithm(platform::DerWriter& out, KeyAlgorithm key, HashAlgorithm hash) {
    out.Sequence([&] {
        out.Oid(SignatureOid(key, hash));
        if (key == KeyAlgorithm::rsa) out.Null();
    });
}

std::string_view FamilyName(KeyAlgorithm key) {
    switch (key) {
        case KeyAlgorithm::rsa:
            return "RSA";
        case KeyAlgorithm::ecdsa:
            return "ECDSA";
        case KeyAlgorithm::dsa:
            return "DSA";
    }
    return {};
}

}  // namespace toolkit::cms

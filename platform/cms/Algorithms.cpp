#include "platform/cms/Algorithms.h"

#include <array>
#include <string_view>

namespace platform::cms {

namespace {

using Kind = SignatureScheme::Kind;

struct Row {
    std::string_view oid, name;
    Kind kind;
    std::optional<HashAlgorithm> hash;  // empty: whatever the signer's digestAlgorithm is
};

constexpr std::string_view kPss = "1.2.840.113549.1.1.10";

constexpr std::array kRows = {
    Row{"1.2.840.113549.1.1.1", "RSA-PKCSV-1_5", Kind::rsaPkcs1, {}},
    Row{"1.2.840.113549.1.1.2", "RSA-MD2-PKCSV-1_5", Kind::rsaPkcs1, HashAlgorithm::md2},
    Row{"1.2.840.113549.1.1.4", "RSA-MD5-PKCSV-1_5", Kind::rsaPkcs1, HashAlgorithm::md5},
    Row{"1.2.840.113549.1.1.5", "RSA-SHA1-PKCSV-1_5", Kind::rsaPkcs1, HashAlgorithm::sha1},
    Row{"1.3.14.3.2.29", "RSA-SHA1-PKCSV-1_5", Kind::rsaPkcs1, HashAlgorithm::sha1},
    Row{"1.2.840.113549.1.1.14", "RSA-SHA224-PKCSV-1_5", Kind::rsaPkcs1, HashAlgorithm::sha224},
    Row{"1.2.840.113549.1.1.11", "RSA-SHA256-PKCSV-1_5", Kind::rsaPkcs1, HashAlgorithm::sha256},
    Row{"1.2.840.113549.1.1.12", "RSA-SHA384-PKCSV-1_5", Kind::rsaPkcs1, HashAlgorithm::sha384},
    Row{"1.2.840.113549.1.1.13", "RSA-SHA512-PKCSV-1_5", Kind::rsaPkcs1, HashAlgorithm::sha512},
    Row{"2.16.840.1.101.3.4.3.14", "RSA-SHA3-256-PKCSV-1_5", Kind::rsaPkcs1, HashAlgorithm::sha3_256},
    Row{"2.16.840.1.101.3.4.3.15", "RSA-SHA3-384-PKCSV-1_5", Kind::rsaPkcs1, HashAlgorithm::sha3_384},
    Row{"2.16.840.1.101.3.4.3.16", "RSA-SHA3-512-PKCSV-1_5", Kind::rsaPkcs1, HashAlgorithm::sha3_512},
    Row{kPss, "RSASSA-PSS", Kind::rsaPss, {}},
    // The key's own identifiers stand here in messages of some makers.
    Row{"1.2.840.10045.2.1", "ECDSA", Kind::ecdsa, {}},
    Row{"1.2.840.10045.4.1", "ECDSA-SHA1", Kind::ecdsa, HashAlgorithm::sha1},
    Row{"1.2.840.10045.4.3.1", "ECDSA-SHA224", Kind::ecdsa, HashAlgorithm::sha224},
    Row{"1.2.840.10045.4.3.2", "ECDSA-SHA256", Kind::ecdsa, HashAlgorithm::sha256},
    Row{"1.2.840.10045.4.3.3", "ECDSA-SHA384", Kind::ecdsa, HashAlgorithm::sha384},
    Row{"1.2.840.10045.4.3.4", "ECDSA-SHA512", Kind::ecdsa, HashAlgorithm::sha512},
    Row{"2.16.840.1.101.3.4.3.10", "ECDSA-SHA3-256", Kind::ecdsa, HashAlgorithm::sha3_256},
    Row{"2.16.840.1.101.3.4.3.11", "ECDSA-SHA3-384", Kind::ecdsa, HashAlgorithm::sha3_384},
    Row{"2.16.840.1.101.3.4.3.12", "ECDSA-SHA3-512", Kind::ecdsa, HashAlgorithm::sha3_512},
    Row{"1.2.840.10040.4.1", "DSA", Kind::dsa, {}},
    Row{"1.3.14.3.2.12", "DSA", Kind::dsa, {}},
    Row{"1.2.840.10040.4.3", "DSA-SHA1", Kind::dsa, HashAlgorithm::sha1},
    Row{"1.3.14.3.2.27", "DSA-SHA1", Kind::dsa, HashAlgorithm::sha1},
    Row{"2.16.840.1.101.3.4.3.1", "DSA-SHA224", Kind::dsa, HashAlgorithm::sha224},
    Row{"2.16.840.1.101.3.4.3.2", "DSA-SHA256", Kind::dsa, HashAlgorithm::sha256},
    Row{"2.16.840.1.101.3.4.3.3", "DSA-SHA384", Kind::dsa, HashAlgorithm::sha384},
    Row{"2.16.840.1.101.3.4.3.4", "DSA-SHA512", Kind::dsa, HashAlgorithm::sha512},
};

const Row* Find(std::string_view oid) {
    for (const auto& row : kRows) {
        if (row.oid == oid) return &row;
    }
    return nullptr;
}

bool IsEdwards(std::string_view oid) {
    return oid == "1.3.101.112" || oid == "1.3.101.113";
}

std::optional<HashAlgorithm> HashOf(const std::optional<AlgorithmIdentifier>& algorithm) {
    return algorithm && algorithm->HasNoParameters() ? HashFromOid(algorithm->oid) : std::nullopt;
}

std::optional<AlgorithmIdentifier> ReadWholeAlgorithm(ByteView der) {
    const auto sequence = SoleElement(der, platform::tag::kSequence);
    return sequence ? ReadAlgorithm(DerReader(sequence->contents)) : std::nullopt;
}

std::optional<std::uint64_t> SmallInteger(ByteView der) {
    const auto integer = SoleElement(der, platform::tag::kInteger);
    if (!integer || integer->contents.empty() || (integer->contents.front() & 0x80) != 0) return std::nullopt;
    const auto magnitude = Magnitude(integer->contents);
    if (magnitude.size() > 4) return std::nullopt;
    std::uint64_t value = 0;
    for (const auto octet : magnitude)
        value = value << 8 | octet;
    return value;
}

constexpr std::string_view kMgf1 = "1.2.840.113549.1.1.8";

bool ReadMgf1(ByteView der, SignatureScheme& scheme) {
    const auto mask = ReadWholeAlgorithm(der);
    if (!mask || mask->oid != kMgf1) return false;
    const auto hash = HashOf(ReadWholeAlgorithm(mask->parameters));
    if (!hash) return false;
    scheme.mgf1Hash = *hash;
    return true;
}

bool ReadSaltLength(ByteView der, SignatureScheme& scheme) {
    const auto salt = SmallInteger(der);
    // Longer than the largest modulus that anybody uses: no signature can fit it.
    if (!salt || *salt > 2048) return false;
    scheme.saltLength = static_cast<std::size_t>(*salt);
    return true;
}

// RSASSA-PSS-params (RFC 4055 3.1): fields [0] to [3] in order, each with a default (SHA-1, MGF1 with SHA-1, 20, 1).
bool ReadPssParameters(const Bytes& der, SignatureScheme& scheme) {
    scheme.hash = scheme.mgf1Hash = HashAlgorithm::sha1;
    scheme.saltLength = 20;
    const auto sequence = SoleElement(der, platform::tag::kSequence);
    if (!sequence) return false;
    DerReader fields(sequence->contents);
    if (const auto field = fields.Next(platform::tag::ContextConstructed(0))) {
        const auto hash = HashOf(ReadWholeAlgorithm(field->contents));
        if (!hash) return false;
        scheme.hash = *hash;
    }
    if (const auto field = fields.Next(platform::tag::ContextConstructed(1))) {
        if (!ReadMgf1(field->contents, scheme)) return false;
    }
    if (const auto field = fields.Next(platform::tag::ContextConstructed(2))) {
        if (!ReadSaltLength(field->contents, scheme)) return false;
    }
    if (const auto field = fields.Next(platform::tag::ContextConstructed(3))) {
        if (SmallInteger(field->contents) != 1) return false;
    }
    return fields.AtEnd();
}

}  // namespace

std::string DigestName(const std::string& oid) {
    const auto hash = HashFromOid(oid);
    return hash ? std::string(NameOf(*hash)) : oid;
}

std::string SignatureName(const std::string& oid) {
    if (oid == "1.3.101.112") return "Ed25519";
    if (oid == "1.3.101.113") return "Ed448";
    const Row* row = Find(oid);
    return row != nullptr ? std::string(row->name) : oid;
}

SchemeChoice ChooseScheme(const AlgorithmIdentifier& signature, HashAlgorithm digest) {
    if (IsEdwards(signature.oid)) return {SchemeFault::needsWholeMessage, {}};
    const Row* row = Find(signature.oid);
    if (row == nullptr) return {SchemeFault::unknownAlgorithm, {}};
    SchemeChoice choice;
    choice.scheme.kind = row->kind;
    choice.scheme.hash = choice.scheme.mgf1Hash = digest;
    if (row->kind == Kind::rsaPss) {
        if (!ReadPssParameters(signature.parameters, choice.scheme)) return {SchemeFault::badParameters, {}};
        if (choice.scheme.hash != digest) return {SchemeFault::differentDigests, {}};
    } else if (row->kind != Kind::rsaPkcs1 && row->hash && *row->hash != digest) {
        return {SchemeFault::differentDigests, {}};
    }
    return choice;
}

}  // namespace platform::cms

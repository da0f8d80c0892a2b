#include "tests/toolkit/SignFixture.h"

#include "platform/Text.h"
#include "platform/formats/Der.h"
#include "platform/formats/Oid.h"
#include "tests/support/SoftToken.h"

namespace tests {

using platform::DerReader;

std::u16string Wide(const std::string& utf8) {
    return platform::ToWide(utf8);
}

std::string Narrow(const char16_t* text) {
    return text == nullptr ? std::string() : platform::ToUtf8(text);
}

std::string UsualAttributes(const std::string& tsaUrl, const std::string& hash) {
    std::string json = R"({"contentType":true,"signingTime":true,"messageDigest":true,"signingCertificateV2":true,)"
                       R"("IssuerAndSerialNumber":true)";
    if (!tsaUrl.empty()) {
        json += R"(,"timestampToken":{"enabled":true,"addNonce":true,"requestTsaCert":true,"tsaUrl":")" + tsaUrl +
                R"(","hashAlg":")" + hash + "\"}";
    }
    return json + "}";
}

SignFixture::SignFixture(KeyType type) : pki_(type) {
    pki_.Install(profile_);
    // Who has no key in a folder is looked for on tokens: not on those of the person who runs the tests.
    UseNoPkcs11Modules(profile_);
}

bool SignFixture::TrySign(const std::filesystem::path& input, const std::filesystem::path& output,
                          const SignOptions& options, const std::string& thumbprint) {
    toolkit::CkCertW certificate;
    if (!certificate.LoadByThumbprint(Wide(thumbprint).c_str(), u"hex")) {
        ADD_FAILURE() << Narrow(certificate.lastErrorText());
        return false;
    }
    toolkit::CkCrypt2W crypt;
    crypt.put_VerboseLogging(true);
    EXPECT_TRUE(crypt.SetSigningCert(certificate));
    crypt.put_HashAlgorithm(Wide(options.hash).c_str());
    crypt.put_CadesEnabled(options.cades);
    crypt.put_IncludeCertChain(options.chain);
    crypt.put_DerOrder(options.derOrder);
    if (options.http != nullptr) crypt.SetTsaHttpObj(*options.http);
    crypt.put_SigningAttributes(Wide(options.attributes).c_str());
    const auto from = Wide(input.string()), to = Wide(output.string());
    const bool done =
        options.attached ? crypt.CreateP7M(from.c_str(), to.c_str()) : crypt.CreateP7S(from.c_str(), to.c_str());
    log_ = Narrow(crypt.lastErrorText());
    return done;
}

std::filesystem::path SignFixture::Sign(const std::string& content, const SignOptions& options) {
    const auto input = profile_.Write("document.bin", content);
    const auto output = Scratch(options.attached ? "document.bin.p7m" : "document.bin.p7s");
    EXPECT_TRUE(TrySign(input, output, options)) << log_;
    return output;
}

namespace {

constexpr std::uint8_t kContext0 = 0xA0;

std::string ShapeOfRow(ByteView bytes);

std::string ShapeOf(const platform::DerElement& element) {
    const auto nested = [&](std::string name) {
        return name.append("(").append(ShapeOfRow(element.contents)).append(")");
    };
    switch (element.tag) {
        case platform::tag::kSequence:
            return nested("S");
        case platform::tag::kSet:
            return nested("T");
        case platform::tag::kOid:
            return platform::OidToText(element.contents).value_or("bad identifier");
        case platform::tag::kInteger:
            return std::string("int ").append(Hex(element.contents));
        case platform::tag::kBoolean:
            return std::string("boolean ").append(Hex(element.contents));
        case platform::tag::kNull:
            return "null";
        case platform::tag::kOctetString:
            return std::string("octets ").append(std::to_string(element.contents.size()));
        case platform::tag::kUtcTime:
            return std::string("utc ").append(std::to_string(element.contents.size()));
        default:
            break;
    }
    if ((element.tag & 0xE0) == kContext0)
        return nested(std::string("[").append(std::to_string(element.tag & 0x1F)).append("]"));
    return std::string("tag ").append(std::to_string(element.tag));
}

bool IsCertificate(const platform::DerElement& element) {
    const unsigned char* start = element.encoded.data();
    X509* parsed = d2i_X509(nullptr, &start, static_cast<long>(element.encoded.size()));
    X509_free(parsed);
    return parsed != nullptr;
}

std::string ShapeOfRow(ByteView bytes) {
    std::string shape;
    DerReader row(bytes);
    while (const auto element = row.Next()) {
        if (!shape.empty()) shape += " ";
        shape += IsCertificate(*element) ? "cert" : ShapeOf(*element);
    }
    return row.AtEnd() ? shape : shape + " malformed";
}

void ReadAttributes(const std::optional<platform::DerElement>& set, std::vector<Bytes>& attributes,
                    std::vector<std::string>& types) {
    if (!set) return;
    DerReader row(set->contents);
    while (const auto attribute = row.Next(platform::tag::kSequence)) {
        attributes.emplace_back(attribute->encoded.begin(), attribute->encoded.end());
        types.push_back(DerReader(attribute->contents).Oid().value_or("malformed"));
    }
}

}  // namespace

std::string Shape(ByteView der) {
    return ShapeOfRow(der);
}

SignerParts ReadSigner(const std::filesystem::path& message) {
    SignerParts parts;
    const std::string bytes = ReadFile(message);
    DerReader outer(platform::AsBytes(bytes));
    auto contentInfo = outer.Enter(platform::tag::kSequence).value();
    contentInfo.Oid().value();
    auto fields = contentInfo.Enter(kContext0).value().Enter(platform::tag::kSequence).value();
    fields.Next().value();  // version
    fields.Next().value();  // digestAlgorithms
    fields.Next().value();  // encapContentInfo
    auto certificates = fields.Enter(kContext0).value();
    while (const auto certificate = certificates.Next())
        parts.certificates.emplace_back(certificate->encoded.begin(), certificate->encoded.end());
    auto signer = fields.Enter(platform::tag::kSet).value().Enter(platform::tag::kSequence).value();
    signer.Next().value();  // version
    signer.Next().value();  // sid
    signer.Next().value();  // digestAlgorithm
    ReadAttributes(signer.Next(kContext0), parts.signedAttributes, parts.signedTypes);
    parts.signatureOid = signer.Enter(platform::tag::kSequence).value().Oid().value();
    const auto signature = signer.Next(platform::tag::kOctetString).value();
    parts.signature.assign(signature.contents.begin(), signature.contents.end());
    ReadAttributes(signer.Next(kContext0 + 1), parts.unsignedAttributes, parts.unsignedTypes);
    return parts;
}

Bytes AttributeValue(const std::vector<Bytes>& attributes, const std::string& oid) {
    for (const Bytes& attribute : attributes) {
        auto fields = DerReader(attribute).Enter(platform::tag::kSequence).value();
        if (fields.Oid() != oid) continue;
        const auto value = fields.Enter(platform::tag::kSet).value().Next().value();
        return {value.encoded.begin(), value.encoded.end()};
    }
    return {};
}

}  // namespace tests

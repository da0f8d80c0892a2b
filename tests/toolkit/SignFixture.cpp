#include "tests/toolkit/SignFixture.h"

#include "platform/Text.h"
#include "platform/formats/Der.h"
#include "platform/formats/Oid.h"
#include "tests/support/SoftToken.h"
#include "tests/toolkit/MessageParts.h"

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
    const auto nested = [&](const std::string& name) { return name + "(" + ShapeOfRow(element.contents) + ")"; };
    using namespace platform::tag;
    if (element.tag == kSequence) return nested("S");
    if (element.tag == kSet) return nested("T");
    if ((element.tag & 0xE0) == kContext0) return nested("[" + std::to_string(element.tag & 0x1F) + "]");
    if (element.tag == kOid) return platform::OidToText(element.contents).value_or("bad identifier");
    if (element.tag == kInteger) return "int " + Hex(element.contents);
    if (element.tag == kBoolean) return "boolean " + Hex(element.contents);
    if (element.tag == kNull) return "null";
    if (element.tag == kOctetString) return "octets " + std::to_string(element.contents.size());
    if (element.tag == kUtcTime) return "utc " + std::to_string(element.contents.size());
    return "tag " + std::to_string(element.tag);
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

Bytes Content(const Bytes& element) {
    return platform::CopyOf(platform::SoleElement(element, element[0]).value().contents);
}

void ReadAttributes(const Bytes& set, std::vector<Bytes>& attributes, std::vector<std::string>& types) {
    attributes = testing_support::ElementsOf(set);
    for (const Bytes& attribute : attributes)
        types.push_back(DerReader(Content(attribute)).Oid().value_or("malformed"));
}

}  // namespace

std::string Shape(ByteView der) {
    return ShapeOfRow(der);
}

SignerParts ReadSigner(const std::filesystem::path& message) {
    const std::string bytes = ReadFile(message);
    const testing_support::MessageParts whole(platform::AsBytes(bytes));
    SignerParts parts;
    parts.certificates = whole.certificates;
    for (const Bytes& field : whole.signers.at(0)) {
        if (field[0] == kContext0) ReadAttributes(field, parts.signedAttributes, parts.signedTypes);
        if (field[0] == kContext0 + 1) ReadAttributes(field, parts.unsignedAttributes, parts.unsignedTypes);
        if (field[0] == platform::tag::kOctetString) parts.signature = Content(field);
        if (field[0] == platform::tag::kSequence) parts.signatureOid = DerReader(Content(field)).Oid().value_or("");
    }
    return parts;
}

Bytes AttributeValue(const std::vector<Bytes>& attributes, const std::string& oid) {
    for (const Bytes& attribute : attributes)
        if (DerReader(Content(attribute)).Oid() == oid)
            return testing_support::ElementsOf(testing_support::ElementsOf(attribute).at(1)).at(0);
    return {};
}

}  // namespace tests

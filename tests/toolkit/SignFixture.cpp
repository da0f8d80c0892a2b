#include "tests/toolkit/SignFixture.h"

#include "platform/Text.h"
#include "platform/formats/Der.h"
#include "platform/formats/Oid.h"
#include "platform/posix/OpenSsl.h"
#include "tests/support/Process.h"
#include "tests/support/SoftToken.h"
#include "tests/toolkit/MessageParts.h"

namespace tests {

using platform::DerReader;
using testing_support::ElementsOf;
using testing_support::MessageParts;

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
    profile_.Write("root.pem", pki_.root.Pem());
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

std::string SignFixture::Verdict(const std::string& judge, const std::filesystem::path& message,
                                 const std::filesystem::path& data) const {
    if (judge == "ours") {
        toolkit::CkCrypt2W crypt;
        crypt.put_CmsOptions(u"{\"ValidateTimestampTokens\":true}");
        auto& ours = crypt.Implementation();
        const bool good = data.empty() ? ours.VerifyFile(message) : ours.VerifyDetachedFile(data, message);
        return good ? "" : Narrow(crypt.lastErrorText());
    }
    // The last word is the option for detached content.
    std::map<std::string, std::vector<std::string>> commands = {
        {"openssl",
         {"openssl", "cms", "-verify", "-binary", "-inform", "DER", "-in", message, "-CAfile", "root.pem", "-purpose",
          "any", "-out", "content.out", "-content"}},
        {"certtool",
         {"certtool", "--p7-verify", "--inder", "--infile", message, "--load-ca-certificate", "root.pem",
          "--load-data"}},
        {"gpgsm", {"gpgsm", "--batch", "--verify", message, ""}}};
    std::vector<std::string>& command = commands.at(judge);
    if (data.empty() || command.back().empty()) command.pop_back();
    if (!data.empty()) command.push_back(data);
    const auto result = RunProgram(command, {.folder = profile_.Folder()});
    return result.status == 0 ? "" : result.Summary();
}

namespace {

constexpr std::uint8_t kContext0 = 0xA0;

bool IsCertificate(const platform::DerElement& element) {
    const unsigned char* start = element.encoded.data();
    return platform::posix::X509Ptr(d2i_X509(nullptr, &start, static_cast<long>(element.encoded.size()))) != nullptr;
}

std::string ShapeOf(const platform::DerElement& element) {
    using namespace platform::tag;
    if (IsCertificate(element)) return "cert";
    const bool context = (element.tag & 0xE0) == kContext0;
    if (context || element.tag == kSequence || element.tag == kSet) {
        const std::string name = context ? "[" + std::to_string(element.tag & 0x1F) + "]" : "";
        return name + (element.tag == kSet ? "T(" : context ? "(" : "S(") + Shape(element.contents) + ")";
    }
    if (element.tag == kOid) return platform::OidToText(element.contents).value_or("bad identifier");
    if (element.tag == kInteger) return "int " + Hex(element.contents);
    if (element.tag == kBoolean) return "boolean " + Hex(element.contents);
    return "tag " + std::to_string(element.tag) + " " + std::to_string(element.contents.size());
}

Bytes Content(const Bytes& element) {
    return platform::CopyOf(platform::SoleElement(element, element[0]).value().contents);
}

std::string TypeOf(const Bytes& attribute) {
    return DerReader(Content(attribute)).Oid().value_or("malformed");
}

}  // namespace

std::string Shape(ByteView der) {
    std::string shape;
    DerReader row(der);
    while (const auto element = row.Next())
        shape += (shape.empty() ? "" : " ") + ShapeOf(*element);
    return row.AtEnd() ? shape : shape + " malformed";
}

std::vector<std::string> AttributeSet::Types() const {
    std::vector<std::string> types;
    std::ranges::transform(encoded, std::back_inserter(types), TypeOf);
    return types;
}

Bytes AttributeSet::Value(const std::string& oid) const {
    const auto found = std::ranges::find(encoded, oid, TypeOf);
    return found == encoded.end() ? Bytes() : ElementsOf(ElementsOf(*found).at(1)).at(0);
}

SignerParts ReadSigner(const std::filesystem::path& message) {
    const MessageParts whole(platform::AsBytes(ReadFile(message)));
    SignerParts parts;
    parts.certificates = whole.certificates;
    for (const Bytes& field : whole.signers.at(0)) {
        if (field[0] == kContext0) parts.isSigned.encoded = ElementsOf(field);
        if (field[0] == kContext0 + 1) parts.isUnsigned.encoded = ElementsOf(field);
        if (field[0] == platform::tag::kOctetString) parts.signature = Content(field);
        if (field[0] == platform::tag::kSequence) parts.signatureOid = TypeOf(field);
    }
    return parts;
}

}  // namespace tests

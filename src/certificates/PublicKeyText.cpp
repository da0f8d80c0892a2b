#include "src/certificates/PublicKeyText.h"

#include "platform/Text.h"
#include "src/certificates/DerText.h"

namespace certificates {
namespace {

using platform::ByteView;
using platform::DerReader;
using MaybeText = std::optional<std::u16string>;
namespace tag = platform::tag;

constexpr std::string_view kRsa = "1.2.840.113549.1.1.1", kRsaPss = "1.2.840.113549.1.1.10",
                           kEllipticCurve = "1.2.840.10045.2.1";

constexpr auto kAlgorithms = std::to_array<OidWord>({
    {kRsa, u"RSA"},
    {kRsaPss, u"RSA-PSS"},
    {kEllipticCurve, u"Елиптична крива"},
    {"1.2.840.10040.4.1", u"DSA"},
    {"1.2.840.10046.2.1", u"Diffie-Hellman"},
    {"1.3.101.110", u"X25519"},
    {"1.3.101.111", u"X448"},
    {"1.3.101.112", u"Ed25519"},
    {"1.3.101.113", u"Ed448"},
});

constexpr auto kCurves = std::to_array<OidWord>({
    {"1.2.840.10045.3.1.7", u"P-256"},
    {"1.3.132.0.34", u"P-384"},
    {"1.3.132.0.35", u"P-521"},
    {"1.3.132.0.10", u"secp256k1"},
    {"1.3.36.3.3.2.8.1.1.7", u"brainpoolP256r1"},
    {"1.3.36.3.3.2.8.1.1.11", u"brainpoolP384r1"},
    {"1.3.36.3.3.2.8.1.1.13", u"brainpoolP512r1"},
});

MaybeText RsaParts(ByteView key) {
    const auto whole = platform::SoleElement(key, tag::kSequence);
    if (!whole) return std::nullopt;
    DerReader reader(whole->contents);
    const auto modulus = reader.Next(tag::kInteger), exponent = reader.Next(tag::kInteger);
    if (!modulus || !exponent) return std::nullopt;
    return u"Експонента: " + NumberText(exponent->contents) + u"\nМодул:\n" +
           HexLines(platform::Magnitude(modulus->contents));
}

std::u16string CurvePoint(const platform::Bytes& parameters, ByteView key) {
    std::u16string text;
    if (const auto curve = DerReader(parameters).Oid()) text = u"Крива: " + WordOrOid(kCurves, *curve);
    AddLine(text, u"Точка:\n" + HexLines(key));
    return text;
}

}  // namespace

std::u16string PublicKeyText(ByteView subjectPublicKeyInfo, std::uint32_t bits) {
    const auto whole = platform::SoleElement(subjectPublicKeyInfo, tag::kSequence);
    DerReader reader(whole ? whole->contents : ByteView());
    const auto identifier = reader.Enter(tag::kSequence);
    const auto algorithm = identifier ? platform::ReadAlgorithm(*identifier) : std::nullopt;
    const auto key = reader.Next(tag::kBitString);
    if (!algorithm || !key || key->contents.empty()) return HexLines(subjectPublicKeyInfo);

    const auto octets = key->contents.subspan(1);  // behind the number of unused bits
    auto text = WordOrOid(kAlgorithms, algorithm->oid);
    if (bits > 0) text += u", " + platform::ToWide(std::to_string(bits)) + u" бита";
    MaybeText parts;
    if (algorithm->oid == kRsa || algorithm->oid == kRsaPss) parts = RsaParts(octets);
    if (algorithm->oid == kEllipticCurve) parts = CurvePoint(algorithm->parameters, octets);
    AddLine(text, parts ? *parts : u"Ключ:\n" + HexLines(octets));
    return text;
}

}  // namespace certificates

#include "toolkit/cms/SignedAttributes.h"

#include <cstdio>

#include "platform/Hash.h"
#include "platform/System.h"
#include "platform/formats/DerWriter.h"
#include "toolkit/cms/Message.h"

namespace toolkit::cms {

using platform::Bytes;
using platform::ByteView;
using platform::CertificateContext;
using platform::DerWriter;

namespace {

void WriteSerialNumber(DerWriter& out, const CertificateContext& certificate) {
    const Bytes& serial = certificate.Info().SerialNumber;
    out.Value(platform::tag::kInteger, Bytes(serial.rbegin(), serial.rend()));
}

Bytes EncodedOid(std::string_view oid) {
    DerWriter out;
    out.Oid(oid);
    return out.Take();
}

Bytes EncodedDigest(ByteView digest) {
    DerWriter out;
    out.OctetString(digest);
    return out.Take();
}

// UTCTime tells two digits of the year, so it ends with 2049 (RFC 5652, 11.3).
Bytes EncodedTime(platform::FILETIME moment) {
    const platform::SYSTEMTIME time = platform::FileTimeToSystemTime(moment);
    const bool utcTime = time.wYear >= 1950 && time.wYear < 2050;
    char text[32];
    const int size = std::snprintf(text, sizeof text, "%04d%02d%02d%02d%02d%02dZ", time.wYear, time.wMonth, time.wDay,
                                   time.wHour, time.wMinute, time.wSecond);
    const std::string_view whole(text, static_cast<std::size_t>(size));
    DerWriter out;
    if (utcTime) {
        out.Text(platform::tag::kUtcTime, whole.substr(2));
    } else {
        out.Text(platform::tag::kGeneralizedTime, whole);
    }
    return out.Take();
}

// SigningCertificateV2 with one ESSCertIDv2. Its digest is SHA-256 whatever the signature's is; the identifier is
// written out although it is the default, since readers that expect it there are in use.
Bytes EncodedSigningCertificate(const CertificateContext& signer) {
    DerWriter out;
    const auto issuerSerial = [&] {
        out.Sequence([&] { out.Nested(platform::tag::ContextConstructed(4), [&] { out.Raw(signer.Info().Issuer); }); });
        WriteSerialNumber(out, signer);
    };
    const auto certId = [&] {
        out.AlgorithmWithNull(platform::OidOf(platform::HashAlgorithm::sha256));
        out.OctetString(platform::Digest(platform::HashAlgorithm::sha256, signer.Encoded()));
        out.Sequence(issuerSerial);
    };
    out.Sequence([&] { out.Sequence([&] { out.Sequence(certId); }); });
    return out.Take();
}

}  // namespace

std::vector<Bytes> MakeSignedAttributes(const AttributeChoice& choice, ByteView contentDigest, platform::FILETIME now,
                                        const CertificateContext& signer) {
    std::vector<Bytes> attributes;
    if (choice.contentType) attributes.push_back(MakeAttribute(oid::kContentType, EncodedOid(oid::kData)));
    if (choice.messageDigest) attributes.push_back(MakeAttribute(oid::kMessageDigest, EncodedDigest(contentDigest)));
    if (choice.signingTime) attributes.push_back(MakeAttribute(oid::kSigningTime, EncodedTime(now)));
    if (choice.signingCertificateV2) {
        attributes.push_back(MakeAttribute(oid::kSigningCertificateV2, EncodedSigningCertificate(signer)));
    }
    return attributes;
}

Bytes IssuerAndSerialNumber(const CertificateContext& certificate) {
    DerWriter out;
    out.Sequence([&] {
        out.Raw(certificate.Info().Issuer);
        WriteSerialNumber(out, certificate);
    });
    return out.Take();
}

Bytes MakeAttribute(std::string_view oid, ByteView value) {
    DerWriter out;
    out.Sequence([&] {
        out.Oid(oid);
        out.Set([&] { out.Raw(value); });
    });
    return out.Take();
}

Bytes WrapAttributes(std::uint8_t tag, const std::vector<Bytes>& attributes) {
    DerWriter out;
    out.Nested(tag, [&] {
        for (const Bytes& attribute : attributes)
            out.Raw(attribute);
    });
    return out.Take();
}

}  // namespace toolkit::cms

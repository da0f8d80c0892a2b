#include <algorithm>
#include <array>

#include "platform/Certificates.h"
#include "platform/Text.h"
#include "platform/posix/Ber.h"

namespace platform {
namespace {

using posix::BerContext;
using posix::BerContextPrimitive;
using posix::BerElement;
using posix::BerReader;

std::nullopt_t BadEncoding() {
    SetLastError(CRYPT_E_BAD_ENCODE);
    return std::nullopt;
}

// Both identifiers of the extension have the key identifier under [0] and the serial number under [2] (RFC 5280,
// 4.2.1.1); they differ in how the issuer stands under [1], which nobody asks for.
std::optional<CERT_AUTHORITY_KEY_ID> DecodeKeyIdAndSerial(ByteView der) {
    const auto sequence = posix::ReadSingleElement(der, posix::kBerSequence);
    if (!sequence) return std::nullopt;
    CERT_AUTHORITY_KEY_ID result;
    for (BerReader reader(sequence->content); !reader.AtEnd();) {
        const auto field = reader.Next();
        if (!field) return std::nullopt;
        if (field->identifier == BerContextPrimitive(0)) result.KeyId = CopyOf(field->content);
        if (field->identifier == BerContextPrimitive(2))
            result.CertSerialNumber.assign(field->content.rbegin(), field->content.rend());
    }
    return result;
}

CERT_ALT_NAME_ENTRY DecodeGeneralName(const BerElement& element) {
    CERT_ALT_NAME_ENTRY entry;
    entry.dwAltNameChoice = (element.identifier & 0x1FU) + 1;
    switch (entry.dwAltNameChoice) {
        case CERT_ALT_NAME_RFC822_NAME:
        case CERT_ALT_NAME_DNS_NAME:
        case CERT_ALT_NAME_URL:
            entry.pwszText = ToWide(AsText(element.content));
            break;
        default:
            entry.Value = CopyOf(element.whole);
    }
    return entry;
}

// DistributionPoint (RFC 5280, 4.2.1.13); reasons and CRL issuer are passed over.
std::optional<CRL_DIST_POINT> DecodeDistPoint(ByteView content) {
    CRL_DIST_POINT point;
    BerReader reader(content);
    if (!reader.NextIs(BerContext(0))) return point;
    const auto name = reader.Next();
    if (!name) return std::nullopt;
    BerReader choice(name->content);
    const auto inside = choice.Next();
    if (!inside || !choice.AtEnd()) return BadEncoding();
    if (inside->identifier == BerContext(1)) point.dwDistPointNameChoice = 2;
    if (inside->identifier != BerContext(0)) return point;
    point.dwDistPointNameChoice = CRL_DIST_POINT_FULL_NAME;
    for (BerReader names(inside->content); !names.AtEnd();) {
        const auto element = names.Next();
        if (!element) return std::nullopt;
        point.FullName.push_back(DecodeGeneralName(*element));
    }
    return point;
}

std::optional<std::vector<std::string>> DecodeUsages(ByteView der) {
    const auto sequence = posix::ReadSingleElement(der, posix::kBerSequence);
    if (!sequence) return std::nullopt;
    std::vector<std::string> usages;
    for (BerReader reader(sequence->content); !reader.AtEnd();) {
        auto oid = posix::ReadOid(reader);
        if (!oid) return std::nullopt;
        usages.push_back(std::move(*oid));
    }
    return usages;
}

}  // namespace

const CERT_EXTENSION* CertFindExtension(const CertificateContext& certificate, std::string_view oid) {
    if (!certificate) return nullptr;
    const auto& extensions = certificate.Info().rgExtension;
    const auto found = std::find_if(extensions.begin(), extensions.end(),
                                    [&](const CERT_EXTENSION& extension) { return extension.pszObjId == oid; });
    return found == extensions.end() ? nullptr : &*found;
}

std::optional<Bytes> DecodeOctetString(ByteView der) {
    BerReader reader(der);
    const bool constructed = reader.NextIs(posix::kBerOctetString | 0x20);
    const auto element = constructed ? reader.Next() : reader.Next(posix::kBerOctetString);
    if (!element) return std::nullopt;
    if (!reader.AtEnd()) return BadEncoding();
    return posix::OctetsOf(*element);
}

std::optional<CERT_AUTHORITY_KEY_ID> DecodeAuthorityKeyId(ByteView der) {
    return DecodeKeyIdAndSerial(der);
}

std::optional<CERT_AUTHORITY_KEY_ID> DecodeAuthorityKeyId2(ByteView der) {
    return DecodeKeyIdAndSerial(der);
}

std::optional<std::vector<CRL_DIST_POINT>> DecodeCrlDistPoints(ByteView der) {
    const auto sequence = posix::ReadSingleElement(der, posix::kBerSequence);
    if (!sequence) return std::nullopt;
    std::vector<CRL_DIST_POINT> points;
    for (BerReader reader(sequence->content); !reader.AtEnd();) {
        const auto element = reader.Next(posix::kBerSequence);
        auto point = element ? DecodeDistPoint(element->content) : std::nullopt;
        if (!point) return std::nullopt;
        points.push_back(std::move(*point));
    }
    return points;
}

std::optional<std::vector<CERT_ACCESS_DESCRIPTION>> DecodeAccessDescriptions(ByteView der) {
    const auto sequence = posix::ReadSingleElement(der, posix::kBerSequence);
    if (!sequence) return std::nullopt;
    std::vector<CERT_ACCESS_DESCRIPTION> descriptions;
    for (BerReader reader(sequence->content); !reader.AtEnd();) {
        const auto description = reader.Next(posix::kBerSequence);
        if (!description) return std::nullopt;
        BerReader fields(description->content);
        auto method = posix::ReadOid(fields);
        const auto location = method ? fields.Next() : std::nullopt;
        if (!location) return std::nullopt;
        descriptions.push_back({std::move(*method), DecodeGeneralName(*location)});
    }
    return descriptions;
}

std::optional<std::vector<std::string>> CertGetEnhancedKeyUsage(const CertificateContext& certificate) {
    if (!certificate) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return std::nullopt;
    }
    if (const CERT_EXTENSION* extension = CertFindExtension(certificate, "2.5.29.37"))
        return DecodeUsages(extension->Value);
    if (const auto property = CertGetCertificateContextProperty(certificate, CERT_ENHKEY_USAGE_PROP_ID))
        return DecodeUsages(*property);
    SetLastError(CRYPT_E_NOT_FOUND);
    return std::vector<std::string>();
}

std::optional<std::uint16_t> CertGetIntendedKeyUsage(const CertificateContext& certificate) {
    const CERT_EXTENSION* extension = CertFindExtension(certificate, "2.5.29.15");
    if (extension == nullptr) {
        SetLastError(CRYPT_E_NOT_FOUND);
        return std::nullopt;
    }
    const auto bits = posix::ReadSingleElement(extension->Value, posix::kBerBitString);
    if (!bits) return std::nullopt;
    if (bits->content.empty() || bits->content[0] > 7) return BadEncoding();
    const ByteView octets = bits->content.subspan(1);
    std::uint16_t usage = octets.empty() ? 0 : octets[0];
    if (octets.size() > 1) usage = static_cast<std::uint16_t>(usage | octets[1] << 8);
    return usage;
}

}  // namespace platform

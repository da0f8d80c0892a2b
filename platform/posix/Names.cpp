// Distinguished names (RFC 5280, 4.1.2.4) as people read them.

#include <algorithm>
#include <array>

#include "platform/Certificates.h"
#include "platform/Text.h"
#include "platform/posix/Ber.h"
#include "platform/posix/Native.h"

namespace platform {
namespace {

using posix::BerElement;
using posix::BerReader;

constexpr std::string_view kCommonName = "2.5.4.3", kOrganization = "2.5.4.10", kOrganizationalUnit = "2.5.4.11",
                           kEmail = "1.2.840.113549.1.9.1";

struct Attribute {
    std::string oid;
    BerElement value;
};
using RelativeName = std::vector<Attribute>;

std::optional<std::vector<RelativeName>> DecodeName(ByteView der) {
    const auto sequence = posix::ReadSingleElement(der, posix::kBerSequence);
    if (!sequence) return std::nullopt;
    std::vector<RelativeName> name;
    for (BerReader reader(sequence->content); !reader.AtEnd();) {
        const auto set = reader.Next(posix::kBerSet);
        if (!set) return std::nullopt;
        RelativeName& attributes = name.emplace_back();
        for (BerReader members(set->content); !members.AtEnd();) {
            const auto pair = members.Next(posix::kBerSequence);
            if (!pair) return std::nullopt;
            BerReader inside(pair->content);
            auto oid = posix::ReadOid(inside);
            const auto value = oid ? inside.Next() : std::nullopt;
            if (!value) return std::nullopt;
            attributes.push_back({std::move(*oid), *value});
        }
    }
    return name;
}

std::u16string FromLatin1(ByteView bytes) {
    return {bytes.begin(), bytes.end()};
}

std::u16string FromBmp(ByteView bytes) {
    std::u16string text;
    text.reserve(bytes.size() / 2);
    for (std::size_t i = 0; i + 1 < bytes.size(); i += 2)
        text += static_cast<char16_t>(bytes[i] << 8 | bytes[i + 1]);
    return text;
}

std::u16string FromUniversal(ByteView bytes) {
    std::u16string text;
    for (std::size_t i = 0; i + 3 < bytes.size(); i += 4) {
        const std::uint32_t point =
            static_cast<std::uint32_t>(bytes[i]) << 24 | bytes[i + 1] << 16 | bytes[i + 2] << 8 | bytes[i + 3];
        if (point > 0x10FFFF || (point >= 0xD800 && point < 0xE000)) {
            text += u'\uFFFD';
        } else if (point > 0xFFFF) {
            text += static_cast<char16_t>(0xD800 + ((point - 0x10000) >> 10));
            text += static_cast<char16_t>(0xDC00 + ((point - 0x10000) & 0x3FF));
        } else {
            text += static_cast<char16_t>(point);
        }
    }
    return text;
}

// Strings that should be ASCII: makers put UTF-8 or Latin-1 there all the same.
std::u16string FromSevenBit(ByteView bytes) {
    if (std::all_of(bytes.begin(), bytes.end(), [](std::uint8_t octet) { return octet < 0x80; }))
        return FromLatin1(bytes);
    const auto utf8 = MultiByteToWideChar(CP_UTF8, AsText(bytes));
    return utf8 ? *utf8 : FromLatin1(bytes);
}

std::u16string Hexadecimal(ByteView bytes) {
    constexpr std::u16string_view kDigits = u"0123456789ABCDEF";
    std::u16string text = u"#";
    for (const std::uint8_t octet : bytes) {
        text += kDigits[octet >> 4];
        text += kDigits[octet & 15];
    }
    return text;
}

struct ValueText {
    std::u16string text;
    bool isString = true;
};

ValueText TextOf(const BerElement& value) {
    switch (value.identifier) {
        case 12:  // UTF8String
            return {ToWide(AsText(value.content))};
        case 18:  // NumericString
        case 19:  // PrintableString
        case 22:  // IA5String
        case 26:  // VisibleString
            return {FromSevenBit(value.content)};
        case 20:  // T61String: Latin-1 in practice
        case 21:  // VideotexString
        case 25:  // GraphicString
        case 27:  // GeneralString
            return {FromLatin1(value.content)};
        case 28:  // UniversalString
            return {FromUniversal(value.content)};
        case posix::kBerBmpString:
            return {FromBmp(value.content)};
        default:
            return {Hexadecimal(value.whole), false};
    }
}

bool IsBlank(char16_t c) {
    return c == u' ' || c == u'\t';
}

std::u16string Quoted(const ValueText& value) {
    const std::u16string& text = value.text;
    if (!value.isString || text.empty()) return text;
    const bool special = text.find_first_of(u",+=\"\r\n<>#;") != std::u16string::npos;
    if (!special && !IsBlank(text.front()) && !IsBlank(text.back())) return text;
    std::u16string quoted = u"\"";
    for (const char16_t c : text) {
        if (c == u'"') quoted += c;
        quoted += c;
    }
    return quoted + u'"';
}

std::u16string KeyOf(const std::string& oid, std::uint32_t form) {
    struct Key {
        std::string_view oid;
        std::u16string_view name;
    };
    constexpr auto kKeys = std::to_array<Key>({{"2.5.4.3", u"CN"},
                                               {"2.5.4.4", u"SN"},
                                               {"2.5.4.5", u"SERIALNUMBER"},
                                               {"2.5.4.6", u"C"},
                                               {"2.5.4.7", u"L"},
                                               {"2.5.4.8", u"S"},
                                               {"2.5.4.9", u"STREET"},
                                               {"2.5.4.10", u"O"},
                                               {"2.5.4.11", u"OU"},
                                               {"2.5.4.12", u"T"},
                                               {"2.5.4.42", u"G"},
                                               {"2.5.4.43", u"I"},
                                               {"1.2.840.113549.1.9.1", u"E"},
                                               {"0.9.2342.19200300.100.1.25", u"DC"}});
    std::u16string dotted(oid.begin(), oid.end());
    if (form == CERT_OID_NAME_STR) return dotted;
    const auto found = std::find_if(kKeys.begin(), kKeys.end(), [&](const Key& key) { return key.oid == oid; });
    return found == kKeys.end() ? std::u16string(u"OID.").append(dotted) : std::u16string(found->name);
}

std::u16string RelativeNameText(const RelativeName& attributes, std::uint32_t form) {
    std::u16string text;
    for (const Attribute& attribute : attributes) {
        if (&attribute != &attributes.front()) text += u" + ";
        if (form != CERT_SIMPLE_NAME_STR) text += KeyOf(attribute.oid, form) + u'=';
        text += Quoted(TextOf(attribute.value));
    }
    return text;
}

// The first attribute of that type that has a text; any type when `oid` is empty.
std::u16string AttributeText(const std::vector<RelativeName>& name, std::string_view oid) {
    for (const RelativeName& attributes : name) {
        for (const Attribute& attribute : attributes) {
            if (!oid.empty() && attribute.oid != oid) continue;
            auto text = TextOf(attribute.value).text;
            if (!text.empty()) return text;
        }
    }
    return {};
}

// The first rfc822Name of the subject's or the issuer's alternative names (RFC 5280, 4.2.1.6).
std::u16string AlternativeEmail(const CertificateContext& certificate, bool ofIssuer) {
    const CERT_EXTENSION* extension = CertFindExtension(certificate, ofIssuer ? "2.5.29.18" : "2.5.29.17");
    if (extension == nullptr) return {};
    const auto names = posix::ReadSingleElement(extension->Value, posix::kBerSequence);
    if (!names) return {};
    for (BerReader reader(names->content); !reader.AtEnd();) {
        const auto name = reader.Next();
        if (!name) return {};
        if (name->identifier == posix::BerContextPrimitive(1)) return FromSevenBit(name->content);
    }
    return {};
}

std::u16string SimpleDisplay(const CertificateContext& certificate, const std::vector<RelativeName>& name,
                             bool ofIssuer) {
    for (const std::string_view oid : {kCommonName, kOrganizationalUnit, kOrganization, kEmail}) {
        auto text = AttributeText(name, oid);
        if (!text.empty()) return text;
    }
    auto email = AlternativeEmail(certificate, ofIssuer);
    return email.empty() ? AttributeText(name, {}) : email;
}

// Without outer blanks, inner runs of blanks as one, ASCII letters small.
std::u16string CanonicalValue(std::u16string_view text) {
    std::u16string canonical;
    for (const char16_t c : text) {
        const bool blank = c == u' ' || (c >= u'\t' && c <= u'\r');
        if (blank && (canonical.empty() || canonical.back() == u' ')) continue;
        if (blank) {
            canonical += u' ';
        } else {
            canonical += c >= u'A' && c <= u'Z' ? static_cast<char16_t>(c + 32) : c;
        }
    }
    if (!canonical.empty() && canonical.back() == u' ') canonical.pop_back();
    return canonical;
}

}  // namespace

std::u16string posix::CanonicalName(ByteView nameDer) {
    const auto name = DecodeName(nameDer);
    if (!name) return std::u16string(u"#").append(FromLatin1(nameDer));  // equal to itself alone
    std::u16string canonical;
    for (const RelativeName& attributes : *name) {
        std::vector<std::u16string> parts;
        for (const Attribute& attribute : attributes) {
            const std::u16string oid(attribute.oid.begin(), attribute.oid.end());
            const ValueText value = TextOf(attribute.value);
            parts.push_back(oid + u'=' + (value.isString ? CanonicalValue(value.text) : value.text));
        }
        std::sort(parts.begin(), parts.end());
        for (const auto& part : parts)
            canonical += part + u'\1';
        canonical += u'\2';
    }
    return canonical;
}

std::u16string CertGetNameStringW(const CertificateContext& certificate, std::uint32_t type, std::uint32_t flags,
                                  std::string_view attributeOid) {
    if (!certificate) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return {};
    }
    const bool ofIssuer = (flags & CERT_NAME_ISSUER_FLAG) != 0;
    const Bytes& der = ofIssuer ? certificate.Info().Issuer : certificate.Info().Subject;
    if (type == CERT_NAME_RDN_TYPE) return CertNameToStrW(der, CERT_X500_NAME_STR);
    const auto name = DecodeName(der);
    if (!name) return {};
    switch (type) {
        case CERT_NAME_EMAIL_TYPE: {
            auto email = AlternativeEmail(certificate, ofIssuer);
            return email.empty() ? AttributeText(*name, kEmail) : email;
        }
        case CERT_NAME_ATTR_TYPE:
            return attributeOid.empty() ? std::u16string() : AttributeText(*name, attributeOid);
        case CERT_NAME_SIMPLE_DISPLAY_TYPE:
            return SimpleDisplay(certificate, *name, ofIssuer);
        default:
            SetLastError(ERROR_INVALID_PARAMETER);
            return {};
    }
}

std::u16string CertNameToStrW(ByteView nameDer, std::uint32_t flags) {
    auto name = DecodeName(nameDer);
    if (!name) return {};
    if ((flags & CERT_NAME_STR_REVERSE_FLAG) != 0) std::reverse(name->begin(), name->end());
    const std::u16string_view separator = (flags & CERT_NAME_STR_CRLF_FLAG) != 0 ? u"\r\n" : u", ";
    std::u16string text;
    for (std::size_t i = 0; i < name->size(); ++i) {
        if (i > 0) text += separator;
        text += RelativeNameText((*name)[i], flags & 3);
    }
    return text;
}

}  // namespace platform

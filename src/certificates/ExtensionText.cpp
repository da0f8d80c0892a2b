#include "src/certificates/ExtensionText.h"

#include <span>

#include "crypt/CryptCertificate.h"
#include "platform/Text.h"
#include "src/certificates/DerText.h"
#include "src/certificates/GeneralNames.h"
#include "src/certificates/PolicyText.h"
#include "src/certificates/Wording.h"

namespace certificates {
namespace {

using platform::ByteView;
using platform::DerReader;
using MaybeText = std::optional<std::u16string>;
namespace tag = platform::tag;

constexpr auto kPurposes = std::to_array<OidWord>({
    {"1.3.6.1.5.5.7.3.1", u"удостоверяване на сървър"},
    {"1.3.6.1.5.5.7.3.2", u"удостоверяване на клиент"},
    {"1.3.6.1.5.5.7.3.3", u"подписване на програми"},
    {"1.3.6.1.5.5.7.3.4", u"защита на електронна поща"},
    {"1.3.6.1.5.5.7.3.5", u"IPsec: крайна система"},
    {"1.3.6.1.5.5.7.3.6", u"IPsec: тунел"},
    {"1.3.6.1.5.5.7.3.7", u"IPsec: потребител"},
    {"1.3.6.1.5.5.7.3.8", u"удостоверяване на време"},
    {"1.3.6.1.5.5.7.3.9", u"подписване на отговори на OCSP"},
    {"1.3.6.1.5.5.7.3.17", u"IPsec: обмен на ключове"},
    {"1.3.6.1.5.5.7.3.36", u"подписване на документи"},
    {"1.3.6.1.4.1.311.10.3.4", u"файлова система с шифриране"},
    {"1.3.6.1.4.1.311.10.3.12", u"подписване на документи"},
    {"1.3.6.1.4.1.311.20.2.2", u"вход с карта"},
    {"1.2.840.113583.1.1.5", u"подписване на документи PDF"},
    {"0.4.0.2231.3.0", u"подписване на доверителни списъци"},
    {"2.5.29.37.0", u"всяка употреба"},
});

constexpr auto kAccessMethods = std::to_array<OidWord>({
    {"1.3.6.1.5.5.7.48.1", u"OCSP"},
    {"1.3.6.1.5.5.7.48.2", u"Сертификат на издателя"},
    {"1.3.6.1.5.5.7.48.3", u"Удостоверяване на време"},
    {"1.3.6.1.5.5.7.48.5", u"Хранилище"},
});

constexpr auto kUsageBits = std::to_array<const char16_t*>(
    {u"цифров подпис", u"неотменимост", u"шифриране на ключове", u"шифриране на данни", u"договаряне на ключове",
     u"подписване на сертификати", u"подписване на списъци с отменени сертификати", u"само шифриране",
     u"само дешифриране"});

constexpr auto kReasonBits = std::to_array<const char16_t*>(
    {u"неизползвана", u"разкрит ключ", u"разкрит ключ на издателя", u"променена принадлежност", u"заменен",
     u"прекратена дейност", u"временно спрян", u"отнети права", u"разкрит ключ на орган за атрибути"});

// The bits that are set in a BIT STRING's contents, by name; one without a name by its number.
MaybeText NamedBits(ByteView contents, std::span<const char16_t* const> names) {
    constexpr std::size_t longest = 8;
    if (contents.empty() || contents.size() > longest || contents[0] > 7) return std::nullopt;
    std::u16string text;
    for (std::size_t bit = 0; bit < (contents.size() - 1) * 8; ++bit) {
        if ((contents[1 + bit / 8] & 0x80U >> bit % 8) == 0) continue;
        if (!text.empty()) text += u", ";
        text += bit < names.size() ? std::u16string(names[bit]) : u"бит " + platform::ToWide(std::to_string(bit));
    }
    return text.empty() ? u"няма" : text;
}

MaybeText KeyUsage(ByteView value) {
    const auto bits = platform::SoleElement(value, tag::kBitString);
    return bits ? NamedBits(bits->contents, kUsageBits) : std::nullopt;
}

MaybeText ExtendedKeyUsage(ByteView value) {
    const auto whole = platform::SoleElement(value, tag::kSequence);
    if (!whole) return std::nullopt;
    std::u16string text;
    for (DerReader reader(whole->contents); !reader.AtEnd();) {
        const auto oid = reader.Oid();
        if (!oid) return std::nullopt;
        AddLine(text, WordOrOid(kPurposes, *oid));
    }
    return text;
}

MaybeText BasicConstraints(ByteView value) {
    const auto whole = platform::SoleElement(value, tag::kSequence);
    if (!whole) return std::nullopt;
    DerReader reader(whole->contents);
    bool authority = false;
    if (const auto flag = reader.Next(tag::kBoolean)) authority = flag->contents.size() == 1 && flag->contents[0] != 0;
    std::u16string text = authority ? u"Вид: удостоверяващ орган" : u"Вид: краен притежател";
    const auto longest = reader.Next(tag::kInteger);
    if (longest) AddLine(text, u"Най-много междинни органи: " + NumberText(longest->contents));
    if (authority && !longest) AddLine(text, u"Междинни органи: без ограничение");
    return reader.AtEnd() ? MaybeText(text) : std::nullopt;
}

MaybeText SubjectKeyIdentifier(ByteView value) {
    const auto id = platform::SoleElement(value, tag::kOctetString);
    return id ? MaybeText(tessaly::HexText(id->contents)) : std::nullopt;
}

MaybeText AuthorityKeyIdentifier(ByteView value) {
    const auto whole = platform::SoleElement(value, tag::kSequence);
    if (!whole) return std::nullopt;
    DerReader reader(whole->contents);
    std::u16string text;
    if (const auto id = reader.Next(tag::Context(0))) AddLine(text, u"Ключ: " + tessaly::HexText(id->contents));
    if (const auto issuer = reader.Next(tag::ContextConstructed(1))) {
        const auto names = GeneralNamesText(issuer->contents);
        if (!names) return std::nullopt;
        AddLine(text, u"Издател: " + *names);
    }
    if (const auto serial = reader.Next(tag::Context(2)))
        AddLine(text, u"Сериен номер: " + tessaly::HexText(serial->contents));
    return reader.AtEnd() ? MaybeText(text) : std::nullopt;
}

// DistributionPointName (RFC 5280, 4.2.1.13); one relative to the issuer's name is told as bytes.
MaybeText DistributionPointName(DerReader reader) {
    const auto name = reader.Next();
    if (!name || !reader.AtEnd()) return std::nullopt;
    if (name->tag == tag::ContextConstructed(0)) return GeneralNamesText(name->contents);
    if (name->tag == tag::ContextConstructed(1)) return u"Спрямо издателя: " + HexLines(name->contents);
    return std::nullopt;
}

MaybeText DistributionPoint(DerReader reader) {
    std::u16string text;
    if (const auto name = reader.Next(tag::ContextConstructed(0))) {
        const auto names = DistributionPointName(DerReader(name->contents));
        if (!names) return std::nullopt;
        text = *names;
    }
    if (const auto reasons = reader.Next(tag::Context(1))) {
        const auto words = NamedBits(reasons->contents, kReasonBits);
        if (!words) return std::nullopt;
        AddLine(text, u"Само при причини: " + *words);
    }
    if (const auto issuer = reader.Next(tag::ContextConstructed(2))) {
        const auto names = GeneralNamesText(issuer->contents);
        if (!names) return std::nullopt;
        AddLine(text, u"Издател на списъка: " + *names);
    }
    return reader.AtEnd() ? MaybeText(text) : std::nullopt;
}

MaybeText DistributionPoints(ByteView value) {
    return LinesOfEach(value, DistributionPoint);
}

MaybeText AccessDescription(DerReader reader) {
    const auto method = reader.Oid();
    const auto place = method ? reader.Next() : std::nullopt;
    const auto name = place ? GeneralNameText(*place) : std::nullopt;
    if (!name || !reader.AtEnd()) return std::nullopt;
    return WordOrOid(kAccessMethods, *method) + u": " + *name;
}

MaybeText InformationAccess(ByteView value) {
    return LinesOfEach(value, AccessDescription);
}

MaybeText AlternativeName(ByteView value) {
    const auto whole = platform::SoleElement(value, tag::kSequence);
    return whole ? GeneralNamesText(whole->contents) : std::nullopt;
}

// The minimum and maximum of a subtree, which nobody uses, are not told.
bool AddSubtrees(ByteView contents, std::u16string_view label, std::u16string& text) {
    for (DerReader reader(contents); !reader.AtEnd();) {
        auto subtree = reader.Enter(tag::kSequence);
        const auto base = subtree ? subtree->Next() : std::nullopt;
        const auto name = base ? GeneralNameText(*base) : std::nullopt;
        if (!name) return false;
        AddLine(text, std::u16string(label) + u": " + *name);
    }
    return true;
}

MaybeText NameConstraints(ByteView value) {
    const auto whole = platform::SoleElement(value, tag::kSequence);
    if (!whole) return std::nullopt;
    DerReader reader(whole->contents);
    std::u16string text;
    const auto permitted = reader.Next(tag::ContextConstructed(0));
    if (permitted && !AddSubtrees(permitted->contents, u"Позволено", text)) return std::nullopt;
    const auto excluded = reader.Next(tag::ContextConstructed(1));
    if (excluded && !AddSubtrees(excluded->contents, u"Забранено", text)) return std::nullopt;
    return reader.AtEnd() ? MaybeText(text) : std::nullopt;
}

// The extension stands or not; it has no value (RFC 6960, 4.2.2.2.1).
MaybeText NoCheck(ByteView value) {
    return platform::SoleElement(value, tag::kNull) ? MaybeText(u"Да") : std::nullopt;
}

struct Decoder {
    std::string_view oid;
    MaybeText (*decode)(ByteView value);
};

constexpr auto kDecoders = std::to_array<Decoder>({
    {kKeyUsageOid, KeyUsage},
    {kExtendedKeyUsageOid, ExtendedKeyUsage},
    {"2.5.29.14", SubjectKeyIdentifier},
    {"2.5.29.35", AuthorityKeyIdentifier},
    {"2.5.29.19", BasicConstraints},
    {"2.5.29.17", AlternativeName},
    {"2.5.29.18", AlternativeName},
    {"2.5.29.30", NameConstraints},
    {"2.5.29.31", DistributionPoints},
    {"2.5.29.46", DistributionPoints},
    {"2.5.29.32", PoliciesText},
    {"2.5.29.33", PolicyMappingsText},
    {"2.5.29.36", PolicyConstraintsText},
    {"2.5.29.54", InhibitAnyPolicyText},
    {"1.3.6.1.5.5.7.1.1", InformationAccess},
    {"1.3.6.1.5.5.7.1.11", InformationAccess},
    {"1.3.6.1.5.5.7.48.1.5", NoCheck},
    {kQcStatementsOid, QcStatementsText},
});

}  // namespace

MaybeText ReadableExtension(std::string_view oid, ByteView value) {
    const auto found = std::ranges::find(kDecoders, oid, &Decoder::oid);
    return found == kDecoders.end() ? std::nullopt : found->decode(value);
}

std::u16string ExtensionText(std::string_view oid, ByteView value) {
    const auto text = ReadableExtension(oid, value);
    return text ? *text : HexLines(value);
}

}  // namespace certificates

#include "src/certificates/GeneralNames.h"

#include "platform/Certificates.h"
#include "platform/Text.h"
#include "platform/formats/Oid.h"
#include "src/certificates/DerText.h"

namespace certificates {
namespace {

using platform::ByteView;
using platform::DerElement;
using platform::DerReader;
using MaybeText = std::optional<std::u16string>;
namespace tag = platform::tag;

constexpr auto kOtherNames = std::to_array<OidWord>({
    {"1.3.6.1.4.1.311.20.2.3", u"Име за вход"},
    {"1.3.6.1.5.5.7.8.3", u"Постоянен идентификатор"},
    {"1.3.6.1.5.5.7.8.9", u"Имейл"},  // with letters of any script (RFC 8398)
});

// OtherName: an identifier and, tagged [0], a value of the type that it stands for.
MaybeText OtherName(ByteView contents) {
    DerReader reader(contents);
    const auto oid = reader.Oid();
    auto inner = oid ? reader.Enter(tag::ContextConstructed(0)) : std::nullopt;
    const auto value = inner ? inner->Next() : std::nullopt;
    if (!value || !inner->AtEnd() || !reader.AtEnd()) return std::nullopt;
    return WordOrOid(kOtherNames, *oid) + u": " + StringText(*value).value_or(HexLines(value->encoded));
}

std::u16string Ipv4(ByteView octets) {
    std::string text;
    for (const auto octet : octets)
        text += (text.empty() ? "" : ".") + std::to_string(octet);
    return platform::ToWide(text);
}

std::u16string Ipv6(ByteView octets) {
    constexpr std::string_view digits = "0123456789abcdef";
    std::string text;
    for (std::size_t i = 0; i < octets.size(); i += 2) {
        if (i > 0) text += ':';
        const unsigned group = static_cast<unsigned>(octets[i]) << 8 | octets[i + 1];
        for (int shift = 12; shift >= 0; shift -= 4)
            if (shift == 0 || group >> shift != 0) text += digits[group >> shift & 0x0F];
    }
    return platform::ToWide(text);
}

// An address, or an address with the mask of a range.
std::u16string IpAddress(ByteView octets) {
    switch (octets.size()) {
        case 4:
            return Ipv4(octets);
        case 8:
            return Ipv4(octets.first(4)) + u"/" + Ipv4(octets.last(4));
        case 16:
            return Ipv6(octets);
        case 32:
            return Ipv6(octets.first(16)) + u"/" + Ipv6(octets.last(16));
        default:
            return HexLines(octets);
    }
}

// The one kind of name that is tagged outside its own tag, being a CHOICE itself.
MaybeText DirectoryName(ByteView contents) {
    const auto name = platform::SoleElement(contents, tag::kSequence);
    if (!name) return std::nullopt;
    const auto text = platform::CertNameToStrW(name->encoded, platform::CERT_X500_NAME_STR);
    if (text.empty() && !name->contents.empty()) return std::nullopt;
    return platform::ToWide(platform::OneLineUtf8(text));
}

MaybeText RegisteredId(ByteView contents) {
    const auto oid = platform::OidToText(contents);
    return oid ? MaybeText(platform::ToWide(*oid)) : std::nullopt;
}

MaybeText Labelled(std::u16string_view label, const MaybeText& value) {
    if (!value) return std::nullopt;
    return std::u16string(label) + u": " + *value;
}

}  // namespace

MaybeText GeneralNameText(const DerElement& name) {
    switch (name.tag) {
        case tag::ContextConstructed(0):
            return OtherName(name.contents);
        case tag::Context(1):
            return Labelled(u"Имейл", Utf8Text(name.contents));
        case tag::Context(2):
            return Labelled(u"DNS име", Utf8Text(name.contents));
        case tag::ContextConstructed(3):
            return Labelled(u"Адрес по X.400", HexLines(name.contents));
        case tag::ContextConstructed(4):
            return Labelled(u"Име", DirectoryName(name.contents));
        case tag::ContextConstructed(5):
            return Labelled(u"Име по EDI", HexLines(name.contents));
        case tag::Context(6):
            return Labelled(u"URL", Utf8Text(name.contents));
        case tag::Context(7):
            return Labelled(u"IP адрес", IpAddress(name.contents));
        case tag::Context(8):
            return Labelled(u"Регистриран идентификатор", RegisteredId(name.contents));
        default:
            return std::nullopt;
    }
}

MaybeText GeneralNamesText(ByteView contents) {
    std::u16string text;
    for (DerReader reader(contents); !reader.AtEnd();) {
        const auto name = reader.Next();
        const auto line = name ? GeneralNameText(*name) : std::nullopt;
        if (!line) return std::nullopt;
        AddLine(text, *line);
    }
    return text;
}

}  // namespace certificates

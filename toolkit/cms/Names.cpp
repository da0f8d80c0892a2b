#include "toolkit/cms/Names.h"

#include <algorithm>

#include "platform/Text.h"
#include "platform/formats/Der.h"

namespace toolkit::cms {

namespace {

using platform::Bytes;
using platform::ByteView;
using platform::DerElement;
using platform::DerReader;
using platform::DerRules;
namespace tag = platform::tag;

constexpr std::string_view kCommonName = "2.5.4.3";

std::string FromUtf16(ByteView bigEndian) {
    std::u16string text;
    for (std::size_t i = 0; i + 1 < bigEndian.size(); i += 2) {
        text.push_back(static_cast<char16_t>(bigEndian[i] << 8 | bigEndian[i + 1]));
    }
    return platform::ToUtf8(text);
}

std::string FromUcs4(ByteView bigEndian) {
    std::u16string text;
    for (std::size_t i = 0; i + 3 < bigEndian.size(); i += 4) {
        const char32_t c = static_cast<char32_t>(bigEndian[i]) << 24 | static_cast<char32_t>(bigEndian[i + 1]) << 16 |
                           static_cast<char32_t>(bigEndian[i + 2]) << 8 | bigEndian[i + 3];
        if (c < 0x10000) {
            text.push_back(static_cast<char16_t>(c));
        } else if (c < 0x110000) {
            text.push_back(static_cast<char16_t>(0xD800 + ((c - 0x10000) >> 10)));
            text.push_back(static_cast<char16_t>(0xDC00 + ((c - 0x10000) & 0x3FF)));
        }
    }
    return platform::ToUtf8(text);
}

std::string FromLatin1(ByteView bytes) {
    return platform::ToUtf8(std::u16string(bytes.begin(), bytes.end()));
}

std::string TextOf(const DerElement& value) {
    switch (value.tag) {
        case tag::kBmpString:
            return FromUtf16(value.contents);
        case tag::kUniversalString:
            return FromUcs4(value.contents);
        case tag::kTeletexString:
            return FromLatin1(value.contents);
        default:
            // Through UTF-16, which replaces what is malformed.
            return platform::ToUtf8(platform::ToWide(platform::AsText(value.contents)));
    }
}

// The text of an AttributeTypeAndValue if it is a commonName.
std::optional<std::string> CommonNameIn(DerReader pair) {
    if (pair.Oid() != kCommonName) return std::nullopt;
    const auto value = pair.Next();
    return value ? std::optional(TextOf(*value)) : std::nullopt;
}

}  // namespace

std::string UpperHex(ByteView bytes) {
    constexpr std::string_view kDigits = "0123456789ABCDEF";
    std::string text;
    text.reserve(bytes.size() * 2);
    for (const auto byte : bytes) {
        text.push_back(kDigits[byte >> 4]);
        text.push_back(kDigits[byte & 0xF]);
    }
    return text;
}

std::string SerialHex(ByteView integerContents) {
    return UpperHex(platform::Magnitude(integerContents));
}

std::string CommonNameOf(ByteView name) {
    auto rdns = DerReader(name, DerRules::ber).Enter(tag::kSequence);
    while (rdns && !rdns->AtEnd()) {
        auto rdn = rdns->Enter(tag::kSet);
        if (!rdn) break;
        while (const auto pair = rdn->Enter(tag::kSequence)) {
            if (auto text = CommonNameIn(*pair)) return *text;
        }
    }
    return {};
}

std::string DistinguishedNameOf(ByteView name) {
    return platform::ToUtf8(platform::CertNameToStrW(name, platform::CERT_X500_NAME_STR));
}

}  // namespace toolkit::cms

#pragma once
// Values inside certificates as texts of one line. What a certificate says is shown to people: characters that would
// reach beyond the line do not come through.

#include <algorithm>
#include <array>
#include <optional>
#include <string>
#include <string_view>

#include "platform/formats/Der.h"

namespace certificates {

struct OidWord {
    std::string_view oid;
    const char16_t* text;
};

// Empty for an identifier that the table does not have.
template <std::size_t Size>
std::u16string FindWord(const std::array<OidWord, Size>& table, std::string_view oid) {
    const auto found = std::ranges::find(table, oid, &OidWord::oid);
    return found == table.end() ? std::u16string() : found->text;
}

// The word, or the identifier itself.
template <std::size_t Size>
std::u16string WordOrOid(const std::array<OidWord, Size>& table, std::string_view oid) {
    const auto word = FindWord(table, oid);
    return word.empty() ? std::u16string(oid.begin(), oid.end()) : word;
}

// Of an INTEGER's contents. The numbers of extensions have few digits: "?" for a negative or a longer one.
std::u16string NumberText(platform::ByteView contents);

// UTF-8, of which ASCII is a part.
std::u16string Utf8Text(platform::ByteView bytes);
// Empty if the element is of no string type that certificates use.
std::optional<std::u16string> StringText(const platform::DerElement& element);

// Bytes as people compare them: "de ad be ef", sixteen a line.
std::u16string HexLines(platform::ByteView bytes);

void AddLine(std::u16string& text, std::u16string_view line);

// Of a SEQUENCE OF SEQUENCE: the lines that `linesOf` has for each, one below the other. Empty if it has none for one
// of them.
template <typename LinesOf>
std::optional<std::u16string> LinesOfEach(platform::ByteView value, const LinesOf& linesOf) {
    const auto whole = platform::SoleElement(value, platform::tag::kSequence);
    if (!whole) return std::nullopt;
    std::u16string text;
    for (platform::DerReader reader(whole->contents); !reader.AtEnd();) {
        const auto element = reader.Enter(platform::tag::kSequence);
        const std::optional<std::u16string> lines = element ? linesOf(*element) : std::nullopt;
        if (!lines) return std::nullopt;
        AddLine(text, *lines);
    }
    return text;
}

}  // namespace certificates

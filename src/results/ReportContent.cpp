#include "src/results/ReportContent.h"

#include <array>
#include <cstdio>
#include <optional>

#include "platform/Text.h"
#include "src/results/SignatureState.h"
#include "src/settings/PrintTexts.h"
#include "src/verification/TimeText.h"

namespace results {
namespace {

// Whoever made a certificate or a file chose its name, which must not reach into other rows.
std::u16string OneLine(std::u16string_view text) {
    return platform::ToWide(platform::OneLineUtf8(text));
}

std::u16string DateText(std::int64_t signingTime) {
    return signingTime > 0 ? verification::LocalMinuteText(signingTime) : u"n/a";
}

// A conversion at the start of the text, "%02d" with its percent sign: what to put for it and its length.
struct Conversion {
    std::string text;
    std::size_t length = 0;
};
std::optional<Conversion> NumberAt(std::u16string_view format, int number) {
    constexpr std::u16string_view flags = u"-+ 0", digits = u"0123456789", kinds = u"diu";
    constexpr std::size_t longestWidth = 2;
    const auto widthAt = std::min(format.find_first_not_of(flags, 1), format.size());
    const auto kindAt = std::min(format.find_first_not_of(digits, widthAt), format.size());
    const bool isNumber = kindAt < format.size() && kinds.find(format[kindAt]) != std::u16string_view::npos;
    if (!isNumber || kindAt - widthAt > longestWidth) return std::nullopt;
    const auto conversion = platform::ToUtf8(format.substr(0, kindAt)) + 'd';
    std::array<char, 128> text{};
    std::snprintf(text.data(), text.size(), conversion.c_str(), number);
    return Conversion{text.data(), kindAt + 1};
}

}  // namespace

ReportContent MakeReport(const verification::SignatureEntries& entries, std::u16string_view fileName) {
    auto texts = settings::ReadPrintTexts();
    ReportContent report{OneLine(fileName), std::move(texts.header), std::move(texts.footer), {}};
    for (const auto& entry : entries) {
        report.rows.push_back({platform::ToWide(std::to_string(std::uint64_t{entry.level} + 1)),
                               OneLine(SignerName(entry)), DateText(entry.signingTime), StateInReport(entry)});
    }
    return report;
}

std::u16string PageText(std::u16string_view format, int page) {
    std::u16string text;
    bool numbered = false;
    while (!format.empty()) {
        const auto plain = format.substr(0, format.find(u'%'));
        text += plain;
        format.remove_prefix(plain.size());
        if (format.starts_with(u"%%")) {
            text += u'%';
            format.remove_prefix(2);
        } else if (const auto number = numbered ? std::nullopt : NumberAt(format, page)) {
            text += platform::ToWide(number->text);
            format.remove_prefix(number->length);
            numbered = true;
        } else if (!format.empty()) {
            text += u'%';
            format.remove_prefix(1);
        }
    }
    return text;
}

}  // namespace results

#include "toolkit/cms/TextMessage.h"

#include <algorithm>
#include <array>

#include "platform/formats/Spool.h"

namespace toolkit::cms {

namespace {

using platform::Bytes;
using platform::ByteView;

constexpr std::size_t kProbe = 20000;
constexpr std::string_view kBegin = "-----BEGIN ";
constexpr std::string_view kEnd = "-----END ";

constexpr std::uint8_t kNoDigit = 0xFF;

constexpr std::array<std::uint8_t, 256> kDigits = [] {
    std::array<std::uint8_t, 256> table{};
    table.fill(kNoDigit);
    constexpr std::string_view kAlphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    for (std::size_t i = 0; i < kAlphabet.size(); ++i) {
        table[static_cast<std::uint8_t>(kAlphabet[i])] = static_cast<std::uint8_t>(i);
    }
    return table;
}();

bool IsBlank(std::uint8_t c) {
    return c == ' ' || c == '\t' || c == '\r' || c == '\n' || c == 0;
}

// Takes text in pieces of any size.
class TextDecoder {
  public:
    // False for what is no Base64.
    bool Take(ByteView text, Bytes& out) {
        return std::all_of(text.begin(), text.end(), [&](std::uint8_t c) { return TakeCharacter(c, out); });
    }
    // Whether the text ended where Base64 may end.
    [[nodiscard]] bool Complete() const { return digits_ == 0 || ended_; }

  private:
    bool TakeCharacter(std::uint8_t c, Bytes& out) {
        if (behindEnd_) return true;
        const bool startsLine = lineStart_;
        lineStart_ = c == '\n' || c == '\r';
        if (startsLine && c == '-') inMarker_ = true;
        if (inMarker_) return TakeMarker(c);
        if (IsBlank(c)) return true;
        if (c == '=') {
            // Padding closes the last group of two or three digits.
            if (digits_ < 2 && !ended_) return false;
            ended_ = true;
            return true;
        }
        const std::uint8_t digit = kDigits[c];
        if (digit == kNoDigit || ended_) return false;
        return TakeDigit(digit, out);
    }

    bool TakeMarker(std::uint8_t c) {
        if (c != '\n' && c != '\r') {
            if (marker_.size() < kEnd.size()) marker_.push_back(static_cast<char>(c));
            behindEnd_ = marker_ == kEnd;
            return true;
        }
        const bool good = marker_.starts_with("-----");
        marker_.clear();
        inMarker_ = false;
        return good;
    }

    bool TakeDigit(std::uint8_t digit, Bytes& out) {
        group_ = group_ << 6 | digit;
        digits_ = (digits_ + 1) % 4;
        if (digits_ != 1) out.push_back(static_cast<std::uint8_t>(group_ >> (digits_ == 2 ? 4 : digits_ == 3 ? 2 : 0)));
        return true;
    }

    std::uint32_t group_ = 0;
    int digits_ = 0;
    bool ended_ = false, lineStart_ = true, inMarker_ = false, behindEnd_ = false;
    std::string marker_;
};

// Behind the header of a mail that holds nothing but the message; 0 for other texts.
std::uint64_t BehindMailHeader(std::string_view text) {
    const std::size_t blank = std::min(text.find("\r\n\r\n"), text.find("\n\n"));
    if (blank == std::string_view::npos) return 0;
    const std::string_view header = text.substr(0, blank);
    const bool message = header.find("application/pkcs7-mime") != std::string_view::npos ||
                         header.find("application/x-pkcs7-mime") != std::string_view::npos;
    return message ? blank : 0;
}

// People's words may stand before the first PEM line.
std::uint64_t StartOfBase64(ByteView probe) {
    const auto text = platform::AsText(probe);
    for (std::size_t at = text.find(kBegin); at != std::string_view::npos; at = text.find(kBegin, at + 1)) {
        if (at == 0 || text[at - 1] == '\n' || text[at - 1] == '\r') return at;
    }
    return BehindMailHeader(text);
}

}  // namespace

bool LooksLikeText(platform::ByteSource& source) {
    const auto probe = source.View(0, kProbe, kProbe);
    return probe && std::all_of(probe->begin(), probe->end(), [](std::uint8_t byte) { return byte < 0x80; });
}

std::unique_ptr<platform::ByteSource> DecodeText(platform::ByteSource& text) {
    const auto probe = text.View(0, kProbe, kProbe);
    if (!probe) return nullptr;
    platform::Spool spool;
    TextDecoder decoder;
    Bytes decoded;
    for (std::uint64_t offset = StartOfBase64(*probe); offset < text.Size();) {
        const auto piece = text.View(offset, 1, text.Size());
        if (!piece || piece->empty()) return nullptr;
        decoded.clear();
        if (!decoder.Take(*piece, decoded) || !spool.Append(decoded)) return nullptr;
        offset += piece->size();
    }
    return decoder.Complete() ? spool.Finish() : nullptr;
}

}  // namespace toolkit::cms

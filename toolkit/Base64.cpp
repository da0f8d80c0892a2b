#include "toolkit/Base64.h"

#include <array>

namespace toolkit {
namespace {

constexpr std::string_view kAlphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
constexpr std::uint8_t kBlank = 64, kPadding = 65, kForeign = 66;

constexpr std::array<std::uint8_t, 256> MeaningsOfCharacters() {
    std::array<std::uint8_t, 256> meanings{};
    meanings.fill(kForeign);
    for (std::size_t i = 0; i < kAlphabet.size(); ++i) {
        meanings[static_cast<std::uint8_t>(kAlphabet[i])] = static_cast<std::uint8_t>(i);
    }
    for (const char c : {' ', '\t', '\r', '\n'})
        meanings[static_cast<std::uint8_t>(c)] = kBlank;
    meanings[static_cast<std::uint8_t>('=')] = kPadding;
    return meanings;
}

constexpr auto kMeanings = MeaningsOfCharacters();

}  // namespace

std::string EncodeBase64(platform::ByteView bytes) {
    std::string text;
    text.reserve((bytes.size() + 2) / 3 * 4);
    for (std::size_t i = 0; i < bytes.size(); i += 3) {
        const std::size_t count = std::min<std::size_t>(3, bytes.size() - i);
        std::uint32_t group = 0;
        for (std::size_t k = 0; k < 3; ++k)
            group = group << 8 | (k < count ? bytes[i + k] : 0U);
        for (std::size_t k = 0; k < 4; ++k)
            text += k <= count ? kAlphabet[group >> (18 - 6 * k) & 63] : '=';
    }
    return text;
}

std::optional<platform::Bytes> DecodeBase64(std::string_view text) {
    platform::Bytes bytes;
    bytes.reserve(text.size() / 4 * 3);
    std::uint32_t group = 0;
    std::size_t characters = 0, padding = 0;
    for (const char c : text) {
        const std::uint8_t meaning = kMeanings[static_cast<std::uint8_t>(c)];
        if (meaning == kBlank) continue;
        if (meaning == kForeign || (padding > 0 && meaning != kPadding)) return std::nullopt;
        if (meaning == kPadding) {
            ++padding;
            continue;
        }
        group = group << 6 | meaning;
        if (++characters % 4 != 0) continue;
        for (const int shift : {16, 8, 0})
            bytes.push_back(static_cast<std::uint8_t>(group >> shift));
        group = 0;
    }
    const std::size_t rest = characters % 4;
    if (rest == 1 || padding > 2 || (padding > 0 && rest + padding != 4)) return std::nullopt;
    if (rest >= 2) bytes.push_back(static_cast<std::uint8_t>(group >> (rest == 2 ? 4 : 10)));
    if (rest == 3) bytes.push_back(static_cast<std::uint8_t>(group >> 2));
    return bytes;
}

}  // namespace toolkit

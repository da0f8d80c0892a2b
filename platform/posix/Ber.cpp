#include "platform/posix/Ber.h"

#include <algorithm>
#include <chrono>
#include <string_view>

#include "platform/Error.h"
#include "platform/posix/OpenSsl.h"

namespace platform::posix {
namespace {

// Deeper nesting of indefinite lengths or constructed strings has no use and would only cost stack and time.
constexpr int kMaximumDepth = 24;

std::nullopt_t Fail(ErrorCode code) {
    SetLastError(code);
    return std::nullopt;
}

struct Header {
    std::size_t size = 0;    // of identifier and length octets
    std::size_t length = 0;  // of the content, when definite
    bool indefinite = false;
};

std::optional<Header> ReadHeader(ByteView bytes) {
    if (bytes.size() < 2) return Fail(CRYPT_E_ASN1_EOD);
    if ((bytes[0] & 0x1F) == 0x1F) return Fail(CRYPT_E_ASN1_BADTAG);  // no format read here has high tag numbers
    const std::uint8_t first = bytes[1];
    if (first < 0x80) return Header{2, first, false};
    if (first == 0x80) {
        if ((bytes[0] & 0x20) == 0) return Fail(CRYPT_E_BAD_ENCODE);
        return Header{2, 0, true};
    }
    const std::size_t count = first & 0x7F;
    if (bytes.size() < 2 + count) return Fail(CRYPT_E_ASN1_EOD);
    std::size_t length = 0;
    for (std::size_t i = 0; i < count; ++i) {
        if (length > (SIZE_MAX >> 8)) return Fail(CRYPT_E_ASN1_EOD);
        length = length << 8 | bytes[2 + i];
    }
    return Header{2 + count, length, false};
}

// The size of the element at the start of `bytes`, end-of-contents included.
std::optional<std::size_t> ElementSize(ByteView bytes, int depth) {
    const auto header = ReadHeader(bytes);
    if (!header) return std::nullopt;
    if (!header->indefinite) {
        if (header->length > bytes.size() - header->size) return Fail(CRYPT_E_ASN1_EOD);
        return header->size + header->length;
    }
    if (depth >= kMaximumDepth) return Fail(CRYPT_E_BAD_ENCODE);
    std::size_t position = header->size;
    for (;;) {
        const ByteView rest = bytes.subspan(position);
        if (rest.size() < 2) return Fail(CRYPT_E_ASN1_EOD);
        if (rest[0] == 0 && rest[1] == 0) return position + 2;
        const auto inner = ElementSize(rest, depth + 1);
        if (!inner) return std::nullopt;
        position += *inner;
    }
}

bool AppendOctets(const BerElement& element, Bytes& octets, int depth) {
    if ((element.identifier & 0x20) == 0) {
        octets.insert(octets.end(), element.content.begin(), element.content.end());
        return true;
    }
    if (depth >= kMaximumDepth) return false;
    BerReader reader(element.content);
    while (!reader.AtEnd()) {
        const auto piece = reader.Next();
        if (!piece || (piece->identifier & ~0x20) != kBerOctetString) return false;
        if (!AppendOctets(*piece, octets, depth + 1)) return false;
    }
    return true;
}

// Arcs beyond 64 bits are rare (identifiers made of UUIDs): the crypto library spells those.
std::optional<std::string> LongOidText(ByteView content) {
    if (content.size() > 127) return Fail(CRYPT_E_BAD_ENCODE);
    Bytes der{kBerOid, static_cast<std::uint8_t>(content.size())};
    der.insert(der.end(), content.begin(), content.end());
    const unsigned char* in = der.data();
    const Owned<ASN1_OBJECT, ASN1_OBJECT_free> object(d2i_ASN1_OBJECT(nullptr, &in, static_cast<long>(der.size())));
    char text[1024];
    const int size = object ? OBJ_obj2txt(text, sizeof text, object.get(), 1) : 0;
    DrainErrorQueue();
    if (size <= 0 || static_cast<std::size_t>(size) >= sizeof text) return Fail(CRYPT_E_BAD_ENCODE);
    return std::string(text, static_cast<std::size_t>(size));
}

// Digits of a time, taken from the front one field after the other.
class TimeText {
  public:
    explicit TimeText(std::string_view text) : text_(text) {}
    [[nodiscard]] bool NextIsDigit() const { return !text_.empty() && text_[0] >= '0' && text_[0] <= '9'; }
    [[nodiscard]] bool AtEnd() const { return text_.empty(); }
    // -1 unless that many digits follow.
    int Number(std::size_t digits) {
        if (text_.size() < digits) return -1;
        int value = 0;
        for (const char c : text_.substr(0, digits)) {
            if (c < '0' || c > '9') return -1;
            value = value * 10 + (c - '0');
        }
        text_.remove_prefix(digits);
        return value;
    }
    char Take() {
        if (text_.empty()) return 0;
        const char c = text_[0];
        text_.remove_prefix(1);
        return c;
    }

  private:
    std::string_view text_;
};

std::optional<std::int64_t> ParseFraction(TimeText& text) {
    std::int64_t units = 0, unit = static_cast<std::int64_t>(kFileTimeUnitsPerSecond) / 10;
    if (!text.NextIsDigit()) return std::nullopt;
    for (; text.NextIsDigit(); unit /= 10)
        units += text.Number(1) * unit;
    return units;
}

// What follows the digits: Z, an offset in minutes, or nothing, which counts as UTC.
std::optional<int> ParseZone(TimeText& text) {
    if (text.AtEnd()) return 0;
    const char sign = text.Take();
    if (sign == 'Z') return text.AtEnd() ? std::optional(0) : std::nullopt;
    const int hours = text.Number(2), minutes = text.Number(2);
    if ((sign != '+' && sign != '-') || hours < 0 || hours > 23 || minutes < 0 || minutes > 59 || !text.AtEnd())
        return std::nullopt;
    return (sign == '+' ? 1 : -1) * (hours * 60 + minutes);
}

std::optional<FILETIME> ParseTime(std::string_view digits, bool generalized) {
    TimeText text(digits);
    int year = text.Number(generalized ? 4 : 2);
    if (year < 0) return std::nullopt;
    if (!generalized) year += year < 50 ? 2000 : 1900;
    const int month = text.Number(2), day = text.Number(2), hour = text.Number(2);
    const int minute = text.NextIsDigit() || !generalized ? text.Number(2) : 0;
    const int second = text.NextIsDigit() ? text.Number(2) : 0;
    std::int64_t fraction = 0;
    if (generalized && !text.AtEnd() && !text.NextIsDigit()) {
        TimeText ahead = text;
        const char mark = ahead.Take();
        if (mark == '.' || mark == ',') {
            const auto units = ParseFraction(ahead);
            if (!units) return std::nullopt;
            fraction = *units;
            text = ahead;
        }
    }
    const auto offset = ParseZone(text);
    const std::chrono::year_month_day date{std::chrono::year(year), std::chrono::month(static_cast<unsigned>(month)),
                                           std::chrono::day(static_cast<unsigned>(day))};
    if (!offset || month < 0 || day < 0 || !date.ok()) return std::nullopt;
    if (hour < 0 || hour > 23 || minute < 0 || minute > 59 || second < 0 || second > 60) return std::nullopt;
    const std::int64_t days = std::chrono::sys_days(date).time_since_epoch().count();
    const std::int64_t seconds = days * 86400 + hour * 3600 + (minute - *offset) * 60 + second;
    constexpr auto kUnits = static_cast<std::int64_t>(kFileTimeUnitsPerSecond);
    const std::int64_t moment = static_cast<std::int64_t>(kFileTimeOfUnixEpoch) + seconds * kUnits + fraction;
    return static_cast<FILETIME>(std::max<std::int64_t>(moment, 0));
}

}  // namespace

std::optional<BerElement> BerReader::Next() {
    const auto header = ReadHeader(rest_);
    if (!header) return std::nullopt;
    const auto size = ElementSize(rest_, 0);
    if (!size) return std::nullopt;
    BerElement element{rest_[0], {}, rest_.first(*size)};
    element.content = element.whole.subspan(header->size, *size - header->size - (header->indefinite ? 2 : 0));
    rest_ = rest_.subspan(*size);
    return element;
}

std::optional<BerElement> BerReader::Next(std::uint8_t identifier) {
    if (AtEnd()) return Fail(CRYPT_E_ASN1_EOD);
    if (!NextIs(identifier)) return Fail(CRYPT_E_ASN1_BADTAG);
    return Next();
}

std::optional<BerElement> ReadSingleElement(ByteView bytes, std::uint8_t identifier) {
    BerReader reader(bytes);
    auto element = reader.Next(identifier);
    if (element && !reader.AtEnd()) return Fail(CRYPT_E_BAD_ENCODE);
    return element;
}

std::optional<std::string> OidText(ByteView content) {
    if (content.empty() || (content.back() & 0x80) != 0) return Fail(CRYPT_E_BAD_ENCODE);
    std::string text;
    std::uint64_t arc = 0;
    bool first = true;
    for (const std::uint8_t octet : content) {
        if (arc > (UINT64_MAX >> 7)) return LongOidText(content);
        arc = arc << 7 | (octet & 0x7F);
        if ((octet & 0x80) != 0) continue;
        if (first) {
            const std::uint64_t root = std::min<std::uint64_t>(arc / 40, 2);
            text = std::to_string(root) + '.' + std::to_string(arc - root * 40);
            first = false;
        } else {
            text += '.' + std::to_string(arc);
        }
        arc = 0;
    }
    return text;
}

std::optional<std::string> ReadOid(BerReader& reader) {
    const auto element = reader.Next(kBerOid);
    return element ? OidText(element->content) : std::nullopt;
}

std::optional<FILETIME> ReadTime(BerReader& reader) {
    const bool generalized = reader.NextIs(kBerGeneralizedTime);
    const auto element = reader.Next(generalized ? kBerGeneralizedTime : kBerUtcTime);
    if (!element) return std::nullopt;
    const auto moment = ParseTime(AsText(element->content), generalized);
    return moment ? moment : Fail(CRYPT_E_BAD_ENCODE);
}

std::optional<std::uint64_t> ReadUnsigned(BerReader& reader) {
    const auto element = reader.Next(kBerInteger);
    if (!element) return std::nullopt;
    ByteView digits = element->content;
    if (digits.empty() || (digits[0] & 0x80) != 0) return Fail(CRYPT_E_BAD_ENCODE);
    while (digits.size() > 1 && digits[0] == 0)
        digits = digits.subspan(1);
    if (digits.size() > 8) return Fail(CRYPT_E_BAD_ENCODE);
    std::uint64_t value = 0;
    for (const std::uint8_t digit : digits)
        value = value << 8 | digit;
    return value;
}

std::optional<Bytes> OctetsOf(const BerElement& element) {
    Bytes octets;
    if (!AppendOctets(element, octets, 0)) return Fail(CRYPT_E_BAD_ENCODE);
    return octets;
}

}  // namespace platform::posix

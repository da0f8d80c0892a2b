#include "toolkit/cms/TimestampReply.h"

#include <array>
#include <string_view>

#include "platform/Text.h"
#include "platform/formats/Der.h"

namespace toolkit::cms {

using platform::DerReader;
using platform::DerRules;

namespace {

struct FailureBit {
    std::size_t bit;
    std::string_view name;
};
// RFC 3161, 2.4.2.
constexpr std::array kFailureBits{FailureBit{0, "badAlg"},
                                  FailureBit{2, "badRequest"},
                                  FailureBit{5, "badDataFormat"},
                                  FailureBit{14, "timeNotAvailable"},
                                  FailureBit{15, "unacceptedPolicy"},
                                  FailureBit{16, "unacceptedExtension"},
                                  FailureBit{17, "addInfoNotAvailable"},
                                  FailureBit{25, "systemFailure"}};

std::string NameOfFailureBit(std::size_t bit) {
    for (const FailureBit& known : kFailureBits) {
        if (known.bit == bit) return std::string(known.name);
    }
    return "bit " + std::to_string(bit);
}

std::vector<std::string> ReadFailures(platform::ByteView bitString) {
    std::vector<std::string> names;
    for (std::size_t bit = 0; bit + 8 < 8 * bitString.size(); ++bit) {
        if (bitString[1 + bit / 8] & (0x80 >> bit % 8)) names.push_back(NameOfFailureBit(bit));
    }
    return names;
}

std::optional<std::int64_t> ReadSmallInteger(platform::ByteView contents) {
    if (contents.empty() || contents.size() > 4) return std::nullopt;
    std::int64_t value = (contents[0] & 0x80) ? -1 : 0;
    for (const std::uint8_t octet : contents)
        value = value * 256 + octet;
    return value;
}

bool ReadStatusInfo(DerReader info, TimestampReply& reply) {
    const auto status = info.Next(platform::tag::kInteger);
    if (!status) return false;
    const auto number = ReadSmallInteger(status->contents);
    if (!number) return false;
    reply.status = *number;
    if (auto texts = info.Enter(platform::tag::kSequence)) {
        while (const auto text = texts->Next())
            // Through UTF-16 and back, so that malformed text cannot reach the log.
            reply.texts.push_back(platform::ToUtf8(platform::ToWide(platform::AsText(text->contents))));
    }
    if (const auto failures = info.Next(platform::tag::kBitString)) reply.failures = ReadFailures(failures->contents);
    return info.AtEnd();
}

}  // namespace

std::optional<TimestampReply> DecodeTimestampReply(platform::ByteView bytes) {
    const auto response = platform::SoleElement(bytes, platform::tag::kSequence, DerRules::ber);
    if (!response) return std::nullopt;
    DerReader fields(response->contents, DerRules::ber);
    const auto info = fields.Enter(platform::tag::kSequence);
    TimestampReply reply;
    if (!info || !ReadStatusInfo(*info, reply)) return std::nullopt;
    if (const auto token = fields.Next(platform::tag::kSequence)) reply.token = platform::CopyOf(token->encoded);
    if (!fields.AtEnd()) return std::nullopt;
    return reply;
}

std::string_view PkiStatusName(std::int64_t status) {
    constexpr std::array<std::string_view, 6> kNames{"granted", "grantedWithMods",   "rejection",
                                                     "waiting", "revocationWarning", "revocationNotification"};
    const auto index = static_cast<std::size_t>(status);
    return index < kNames.size() ? kNames[index] : "unknown";
}

}  // namespace toolkit::cms

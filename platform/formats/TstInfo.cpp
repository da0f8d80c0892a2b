#include "platform/formats/TstInfo.h"

#include <algorithm>

namespace platform {

namespace {

int Number(std::string_view digits) {
    int value = 0;
    for (const char digit : digits)
        value = value * 10 + (digit - '0');
    return value;
}

bool AllDigits(std::string_view text) {
    return std::all_of(text.begin(), text.end(), [](char c) { return c >= '0' && c <= '9'; });
}

bool IsCalendarDay(int year, int month, int day) {
    constexpr int kDays[] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
    if (month < 1 || month > 12 || day < 1) return false;
    const bool leap = (year % 4 == 0 && year % 100 != 0) || year % 400 == 0;
    return day <= kDays[month - 1] + (month == 2 && leap ? 1 : 0);
}

// YYYYMMDDhhmmss[.f+]Z
bool IsGeneralizedTime(std::string_view text) {
    if (text.size() < 15 || text.back() != 'Z' || !AllDigits(text.substr(0, 14))) return false;
    const std::string_view fraction = text.substr(14, text.size() - 15);
    if (!fraction.empty() && (fraction.size() < 2 || fraction.front() != '.' || !AllDigits(fraction.substr(1)))) {
        return false;
    }
    return IsCalendarDay(Number(text.substr(0, 4)), Number(text.substr(4, 2)), Number(text.substr(6, 2))) &&
           Number(text.substr(8, 2)) < 24 && Number(text.substr(10, 2)) < 60 && Number(text.substr(12, 2)) <= 60;
}

bool ReadImprint(DerReader& fields, TstInfo& info) {
    auto imprint = fields.Enter(tag::kSequence);
    const auto contents = imprint ? imprint->Enter(tag::kSequence) : std::nullopt;
    auto algorithm = contents ? ReadAlgorithm(*contents) : std::nullopt;
    if (!algorithm) return false;
    info.imprintAlgorithm = std::move(*algorithm);
    const auto digest = imprint->Next(tag::kOctetString);
    if (!digest || !imprint->AtEnd()) return false;
    info.imprint = CopyOf(digest->contents);
    return true;
}

bool ReadInteger(DerReader& fields, Bytes& magnitude) {
    const auto integer = fields.Next(tag::kInteger);
    if (!integer || integer->contents.empty()) return false;
    magnitude = CopyOf(Magnitude(integer->contents));
    return true;
}

bool ReadGenTime(DerReader& fields, TstInfo& info) {
    const auto time = fields.Next(tag::kGeneralizedTime);
    if (!time) return false;
    info.genTime = AsText(time->contents);
    return IsGeneralizedTime(info.genTime);
}

// accuracy, ordering, nonce, tsa [0], extensions [1]: each may be missing.
bool ReadRest(DerReader& fields, TstInfo& info) {
    for (const std::uint8_t optional : {tag::kSequence, tag::kBoolean}) {
        if (fields.NextIs(optional) && !fields.Next()) return false;
    }
    if (fields.NextIs(tag::kInteger) && !ReadInteger(fields, info.nonce)) return false;
    for (const std::uint8_t optional : {tag::ContextConstructed(0), tag::ContextConstructed(1)}) {
        if (fields.NextIs(optional) && !fields.Next()) return false;
    }
    return fields.AtEnd();
}

}  // namespace

std::optional<TstInfo> ReadTstInfo(ByteView der) {
    const auto sequence = SoleElement(der, tag::kSequence, DerRules::ber);
    if (!sequence) return std::nullopt;
    DerReader fields(sequence->contents, DerRules::ber);
    TstInfo info;
    if (!fields.Next(tag::kInteger)) return std::nullopt;
    const auto policy = fields.Oid();
    if (!policy) return std::nullopt;
    info.policy = *policy;
    if (!ReadImprint(fields, info) || !ReadInteger(fields, info.serialNumber) || !ReadGenTime(fields, info) ||
        !ReadRest(fields, info)) {
        return std::nullopt;
    }
    return info;
}

}  // namespace platform

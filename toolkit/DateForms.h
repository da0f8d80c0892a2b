#pragma once
// Calendar moments as text.

#include <chrono>
#include <string>
#include <string_view>

namespace toolkit {

using Moment = std::chrono::sys_time<std::chrono::milliseconds>;  // UTC

// Where the count of 100 ns units starts; also what a text without a date leaves.
constexpr Moment kClearedMoment = std::chrono::sys_days(std::chrono::year(1601) / 1 / 1);

// A text as certificates, timestamps and ISO 8601 write a moment; outer blanks do not count.
// - 13 characters without `-` and `:`: yymmddhhmmss and one more, years below 70 being 20yy (a UTCTime; RFC 5280 has
// 50);
// - 19 such characters: yyyymmddhhmmss, the rest ignored (a GeneralizedTime with three digits of a second);
// - all else, also one of these lengths that has a `T` in place of such digits: ISO 8601, a date, `T`, a time with or
// without
//   seconds and fraction, and `Z` or a zone, which is taken off.
// A date without a time that can be read keeps midnight and is not `whole`; no date leaves the cleared moment.
struct ReadMoment {
    Moment moment = kClearedMoment;
    bool whole = false;
};
ReadMoment ReadDateForm(std::string_view text);

// YYYY-MM-DDThh:mm:ss
std::string WriteIsoSeconds(Moment moment);
// +hh:mm or -hh:mm
std::string WriteZone(std::chrono::seconds fromUtc);

}  // namespace toolkit

#include "toolkit/ClsDateTime.h"

#include <algorithm>
#include <limits>

#include "platform/System.h"

namespace toolkit {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;

constexpr std::int64_t kFileTimeUnitsPerMillisecond = platform::kFileTimeUnitsPerSecond / 1000;

platform::FILETIME FileTimeOf(Moment moment) {
    const auto since = moment - kClearedMoment;
    return since.count() < 0 ? 0 : static_cast<platform::FILETIME>(since.count() * kFileTimeUnitsPerMillisecond);
}

}  // namespace

bool ClsDateTime::SetFromTimestamp(std::string_view text) {
    Operation operation(*this, "SetFromTimestamp");
    const ReadMoment read = ReadDateForm(text);
    Set(read.moment);
    if (!read.whole) operation.Log().Value("Not a whole date and time", text);
    return operation.Finish(read.whole);
}

void ClsDateTime::SetFromFileTime(bool /*local*/, platform::FILETIME moment) {
    // The count is signed where it is kept; beyond that there is no calendar either.
    const auto most = static_cast<platform::FILETIME>(std::numeric_limits<std::int64_t>::max());
    const auto count = static_cast<std::int64_t>(std::min(moment, most));
    Set(kClearedMoment + milliseconds(count / kFileTimeUnitsPerMillisecond));
}

void ClsDateTime::SetFromUnixTime(bool /*local*/, std::int64_t count) {
    Set(Moment(seconds(static_cast<std::uint32_t>(count))));
}

void ClsDateTime::Set(Moment moment) {
    const auto lock = Lock();
    moment_ = moment;
}

seconds ClsDateTime::ZoneDistance() const {
    const platform::FILETIME utc = FileTimeOf(moment_), local = platform::FileTimeToLocalFileTime(utc);
    return seconds(static_cast<std::int64_t>(local - utc) /
                   static_cast<std::int64_t>(platform::kFileTimeUnitsPerSecond));
}

Moment ClsDateTime::At(bool local) const {
    return local ? moment_ + ZoneDistance() : moment_;
}

platform::FILETIME ClsDateTime::GetAsFileTime(bool local) const {
    const auto lock = Lock();
    return FileTimeOf(At(local));
}

std::int64_t ClsDateTime::GetAsUnixTime(bool local) const {
    return static_cast<std::uint32_t>(GetAsUnixTime64(local));
}

std::int64_t ClsDateTime::GetAsUnixTime64(bool local) const {
    const auto lock = Lock();
    return std::chrono::floor<seconds>(At(local)).time_since_epoch().count();
}

std::string ClsDateTime::GetAsTimestamp(bool local) const {
    const auto lock = Lock();
    return WriteIsoSeconds(At(local)) + (local ? WriteZone(ZoneDistance()) : "Z");
}

}  // namespace toolkit

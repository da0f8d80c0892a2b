#include "platform/System.h"

#include <dlfcn.h>
#include <sys/random.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <functional>
#include <string_view>

#include "platform/Error.h"
#include "platform/Text.h"

namespace platform {
namespace {

constexpr std::int64_t kDaysFrom1601To1970 = 134774;
constexpr std::int64_t kSecondsADay = 86400;

struct CivilDate {
    int year, month, day;
};

// Days since 1970-01-01 to a date of the Gregorian calendar. Counts in years that begin in March, so that the leap day
// is the last of its year.
CivilDate DateOfDay(std::int64_t day) {
    day += 719468;  // to 0000-03-01
    const std::int64_t era = day / 146097;
    const std::int64_t dayOfEra = day - era * 146097;
    const std::int64_t yearOfEra = (dayOfEra - dayOfEra / 1460 + dayOfEra / 36524 - dayOfEra / 146096) / 365;
    const std::int64_t dayOfYear = dayOfEra - (365 * yearOfEra + yearOfEra / 4 - yearOfEra / 100);
    const std::int64_t marchMonth = (5 * dayOfYear + 2) / 153;
    const int month = static_cast<int>(marchMonth < 10 ? marchMonth + 3 : marchMonth - 9);
    return {static_cast<int>(yearOfEra + era * 400 + (month <= 2 ? 1 : 0)), month,
            static_cast<int>(dayOfYear - (153 * marchMonth + 2) / 5 + 1)};
}

// localtime_r alone would not see that the zone has changed. To ask costs a system call: a zone that is set by its
// variable is seen at once, the host's file within a second.
void NoticeZone() {
    thread_local std::time_t asked = 0;
    thread_local std::size_t zone = 0;
    const std::time_t now = std::time(nullptr);
    const char* variable = std::getenv("TZ");
    const std::size_t set = std::hash<std::string_view>()(variable != nullptr ? variable : "");
    if (now == asked && zone == set) return;
    tzset();
    asked = now;
    zone = set;
}

}  // namespace

bool BCryptGenRandom(std::span<std::uint8_t> bytes) {
    while (!bytes.empty()) {
        const ssize_t got = getrandom(bytes.data(), bytes.size(), 0);
        if (got < 0 && errno == EINTR) continue;
        if (got <= 0) {
            SetLastError(ErrorFromErrno(errno));
            return false;
        }
        bytes = bytes.subspan(static_cast<std::size_t>(got));
    }
    return true;
}

std::u16string UuidCreate() {
    std::array<std::uint8_t, 16> bytes;
    if (!BCryptGenRandom(bytes)) return {};
    bytes[6] = static_cast<std::uint8_t>(0x40 | (bytes[6] & 0x0F));  // version 4
    bytes[8] = static_cast<std::uint8_t>(0x80 | (bytes[8] & 0x3F));  // variant of RFC 4122
    constexpr std::u16string_view digits = u"0123456789abcdef";
    std::u16string text;
    for (std::size_t i = 0; i < bytes.size(); ++i) {
        if (i == 4 || i == 6 || i == 8 || i == 10) text.push_back(u'-');
        text.push_back(digits[bytes[i] >> 4]);
        text.push_back(digits[bytes[i] & 0x0F]);
    }
    return text;
}

FILETIME GetSystemTimeAsFileTime() {
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    return FileTimeFromUnix(now.tv_sec) + static_cast<FILETIME>(now.tv_nsec) / 100;
}

SYSTEMTIME FileTimeToSystemTime(FILETIME moment) {
    const auto seconds = static_cast<std::int64_t>(moment / kFileTimeUnitsPerSecond);
    const std::int64_t day = seconds / kSecondsADay;
    const auto second = static_cast<int>(seconds % kSecondsADay);
    const CivilDate date = DateOfDay(day - kDaysFrom1601To1970);
    SYSTEMTIME time;
    time.wYear = date.year;
    time.wMonth = date.month;
    time.wDay = date.day;
    time.wDayOfWeek = static_cast<int>((day + 1) % 7);  // 1601-01-01 was a Monday
    time.wHour = second / 3600;
    time.wMinute = second / 60 % 60;
    time.wSecond = second % 60;
    time.wMilliseconds = static_cast<int>(moment / 10'000 % 1000);
    return time;
}

FILETIME FileTimeToLocalFileTime(FILETIME moment) {
    // Whole seconds below the moment, also before 1970: a moment a little before midnight must not move to the next
    // day.
    const auto seconds = static_cast<std::time_t>(moment / kFileTimeUnitsPerSecond) -
                         static_cast<std::time_t>(kFileTimeOfUnixEpoch / kFileTimeUnitsPerSecond);
    std::tm local{};
    NoticeZone();
    if (localtime_r(&seconds, &local) == nullptr) return moment;
    const auto shift = static_cast<std::int64_t>(local.tm_gmtoff) * static_cast<std::int64_t>(kFileTimeUnitsPerSecond);
    const FILETIME shifted = moment + static_cast<FILETIME>(shift);
    const bool wrapped = shift < 0 ? shifted > moment : shifted < moment;
    return wrapped ? moment : shifted;
}

std::filesystem::path GetModuleFileNameW() {
    std::error_code error;
    auto path = std::filesystem::read_symlink("/proc/self/exe", error);
    if (error) SetLastError(ErrorFromErrno(error.value()));
    return path;
}

std::filesystem::path ModuleOfAddress(const void* address) {
    Dl_info info{};
    if (dladdr(address, &info) == 0 || info.dli_fname == nullptr) {
        SetLastError(ERROR_FILE_NOT_FOUND);
        return {};
    }
    // The main program is listed under the name it was started with, which need not be a path.
    std::error_code error;
    auto path = std::filesystem::canonical(info.dli_fname, error);
    return error ? GetModuleFileNameW() : path;
}

}  // namespace platform

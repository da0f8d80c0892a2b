#pragma once
// One calendar moment in UTC, to the millisecond.

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "platform/Types.h"
#include "toolkit/ClsBase.h"
#include "toolkit/DateForms.h"

namespace toolkit {

// `local` of a setter changes nothing: the moment is UTC. `local` of a getter moves the answer to the wall clock of
// this host's zone as it stood at that moment, daylight saving included.
class ClsDateTime : public ClsBase {
  public:
    bool SetFromTimestamp(std::string_view text);  // DateForms.h; false still takes the date that could be read
    void SetFromFileTime(bool local, platform::FILETIME moment);
    void SetFromUnixTime(bool local, std::int64_t seconds);            // the low 32 bits, unsigned
    [[nodiscard]] platform::FILETIME GetAsFileTime(bool local) const;  // 0 for what lies before 1601
    [[nodiscard]] std::int64_t GetAsUnixTime(bool local) const;        // counted in 32 bits, unsigned
    [[nodiscard]] std::int64_t GetAsUnixTime64(bool local) const;
    // "2024-03-01T08:15:00Z"; local "2024-03-01T10:15:00+02:00".
    [[nodiscard]] std::string GetAsTimestamp(bool local) const;

  private:
    void Set(Moment moment);
    [[nodiscard]] std::chrono::seconds ZoneDistance() const;
    [[nodiscard]] Moment At(bool local) const;

    Moment moment_ = kClearedMoment;
};

}  // namespace toolkit

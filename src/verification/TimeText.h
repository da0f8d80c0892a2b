#pragma once

#include <cstdint>
#include <string>

namespace verification {

// A moment (seconds since 1970) on the local wall clock: "2026-03-01 10:15:00".
std::u16string LocalTimeText(std::int64_t seconds);
// "01.03.2026 10:15"
std::u16string LocalMinuteText(std::int64_t seconds);

}  // namespace verification

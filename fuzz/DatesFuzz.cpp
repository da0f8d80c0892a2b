// Forms of dates and Base64: what was read in whole must come back the same from what is written.

#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "toolkit/Base64.h"
#include "toolkit/ClsDateTime.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view text(reinterpret_cast<const char*>(data), size);
    toolkit::ClsDateTime date;
    if (date.SetFromTimestamp(text)) {
        const std::string written = date.GetAsTimestamp(false);
        toolkit::ClsDateTime again;
        // A zone can carry a moment out of the years of four digits.
        const bool fourDigits = written.size() == 20 && written[0] != '-';
        if (fourDigits && (!again.SetFromTimestamp(written) || again.GetAsTimestamp(false) != written)) std::abort();
    }
    (void)date.GetAsFileTime(true);
    (void)date.GetAsTimestamp(true);
    if (const auto bytes = toolkit::DecodeBase64(text)) {
        if (toolkit::DecodeBase64(toolkit::EncodeBase64(*bytes)) != bytes) std::abort();
    }
    return 0;
}

// Values of extensions as text: any bytes are readable or shown in hexadecimal, and only line ends of ours are in the
// text. The first byte says which extension it is.

#include <algorithm>
#include <array>
#include <cstdlib>

#include "src/certificates/ExtensionText.h"

namespace {

constexpr auto kExtensions =
    std::to_array<std::string_view>({"2.5.29.14", "2.5.29.15", "2.5.29.17", "2.5.29.19", "2.5.29.30", "2.5.29.31",
                                     "2.5.29.32", "2.5.29.33", "2.5.29.35", "2.5.29.36", "2.5.29.37", "2.5.29.54",
                                     "1.3.6.1.5.5.7.1.1", "1.3.6.1.5.5.7.1.3", "1.3.6.1.5.5.7.48.1.5"});

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size == 0) return 0;
    const platform::ByteView value(data + 1, size - 1);
    const auto text = certificates::ExtensionText(kExtensions[data[0] % kExtensions.size()], value);
    const bool clean = std::ranges::none_of(text, [](char16_t c) { return c < u' ' && c != u'\n'; });
    if (!clean) std::abort();
    return 0;
}

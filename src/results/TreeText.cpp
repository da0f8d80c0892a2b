#include "src/results/TreeText.h"

#include <algorithm>

#include "platform/Text.h"
#include "src/results/SignatureState.h"
#include "units/Helpers.h"

namespace results {

std::uint32_t LevelCount(const verification::SignatureEntries& entries) {
    std::uint32_t count = 0;
    for (const auto& entry : entries)
        count = std::max(count, entry.level + 1);
    return count;
}

std::u16string TreeText(const verification::SignatureEntry& entry, bool withLevels) {
    auto text = SignerName(entry);
    if (entry.signingTime > 0) {
        const auto& time = entry.hasTimestamp && !withLevels ? entry.timestampTimeText : entry.signingTimeText;
        text += u" (" + time + u")";
    }
    return withLevels ? text : text + u" " + entry.profile;
}

std::u16string LevelText(std::uint32_t level) {
    return units::FormatString1(338, platform::ToWide(std::to_string(level + 1)));
}

}  // namespace results

#include "src/results/Legend.h"

#include <algorithm>

#include "src/results/TreeText.h"

namespace results {
namespace {

constexpr std::uint32_t kMostFrames = 4;
constexpr int kGap = 8, kFoot = 20, kStep = 4;

// The index of the level's frame, as with no level at all one that is no frame's.
std::uint32_t FrameOf(std::uint32_t level, std::uint32_t levels) {
    if (level == 0 || level > levels) return kMostFrames;
    if (levels <= kMostFrames || level <= 2) return level - 1;
    return level < levels ? 2 : 3;
}

std::u16string LabelOf(std::uint32_t frame, std::uint32_t levels) {
    if (levels <= kMostFrames || frame < 2) return LevelText(frame);
    return frame == 2 ? u"..." : LevelText(levels - 1);
}

}  // namespace

std::vector<LegendFrame> MakeLegend(std::uint32_t levels, std::uint32_t current, int labelWidth, int labelHeight,
                                    LegendPlace place) {
    if (levels < 2) return {};
    const auto count = std::min(levels, kMostFrames);
    std::vector<LegendFrame> frames;
    int top = 0;
    for (std::uint32_t i = 0; i < count; ++i) {
        const int left = static_cast<int>(count - i);  // frames that are still to be drawn, this one too
        const int width = labelWidth + kGap * left, height = (labelHeight + kGap) * left + kFoot;
        top = i == 0 ? place.y - height / 2 : top + kStep;
        frames.push_back({LabelOf(i, levels), place.x - width / 2, top, width, height, i == FrameOf(current, levels)});
    }
    return frames;
}

}  // namespace results

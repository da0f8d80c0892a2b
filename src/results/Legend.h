#pragma once
// The picture of nested levels beside the tree of results.

#include <cstdint>
#include <string>
#include <vector>

namespace results {

struct LegendFrame {
    std::u16string label;
    int left = 0, top = 0, width = 0, height = 0;
    bool marked = false;
};

// What the frames are drawn around: the middle of all of them from left to right, of the first from top to bottom.
struct LegendPlace {
    int x = 42, y = 160;
};

// The frames from the outermost, for labels of this size in pixels, with the one of `current` (from 1; 0: none) marked.
// Up to four levels have a frame each; of more, the first two, one for all between them and the last, and the last.
// Empty for less than two levels.
std::vector<LegendFrame> MakeLegend(std::uint32_t levels, std::uint32_t current, int labelWidth, int labelHeight,
                                    LegendPlace place = {});

}  // namespace results

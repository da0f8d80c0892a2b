#pragma once
// Walks nested elements over a source without reading their contents.

#include <algorithm>
#include <optional>
#include <vector>

#include "platform/formats/ByteSource.h"
#include "platform/formats/Der.h"

namespace platform::cms {

class SourceCursor {
  public:
    SourceCursor(ByteSource& source, std::uint64_t offset, std::uint64_t end)
        : source_(source), position_(offset), levels_{{end, false}} {}

    [[nodiscard]] std::uint64_t Position() const { return position_; }
    [[nodiscard]] std::size_t Depth() const { return levels_.size() - 1; }
    // The source failed, in contrast to what it says.
    [[nodiscard]] bool ReadFailed() const { return readFailed_; }

    // The header of the next element of this level; empty at the level's end and for malformed bytes.
    std::optional<ElementHeader> Peek();
    [[nodiscard]] bool NextIs(std::uint8_t tag);
    // Whether this level has ended.
    [[nodiscard]] bool AtEnd();

    bool Enter(std::uint8_t tag);
    // Into the element whose header was just peeked.
    void Enter(const ElementHeader& header);
    // Out of a level that has ended.
    bool Leave();
    // Behind the next element, of whatever length and depth. Gives up behind `most` bytes: an indefinite length has to
    // be walked, and a hostile source could make that last.
    bool Skip(std::uint64_t most = UINT64_MAX);
    void Advance(std::uint64_t size) { position_ += size; }

  private:
    struct Level {
        std::uint64_t end;  // of an indefinite length: where its surroundings end
        bool indefinite;
    };
    std::optional<ElementHeader> HeaderHere();

    ByteSource& source_;
    std::uint64_t position_;
    std::vector<Level> levels_;
    bool readFailed_ = false;
};

}  // namespace platform::cms

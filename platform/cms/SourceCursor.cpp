#include "platform/cms/SourceCursor.h"

namespace platform::cms {

std::optional<ElementHeader> SourceCursor::HeaderHere() {
    const std::uint64_t end = levels_.back().end;
    if (position_ >= end) return std::nullopt;
    const std::uint64_t most = std::min<std::uint64_t>(kLongestElementHeader, end - position_);
    const auto bytes = source_.View(position_, kLongestElementHeader, most);
    if (!bytes) {
        readFailed_ = true;
        return std::nullopt;
    }
    const auto header = ParseElementHeader(*bytes, DerRules::ber);
    if (!header || header->length > end - position_ - header->size) return std::nullopt;
    return header;
}

std::optional<ElementHeader> SourceCursor::Peek() {
    const auto header = HeaderHere();
    if (!header || (levels_.back().indefinite && header->IsEndOfContents())) return std::nullopt;
    return header;
}

bool SourceCursor::NextIs(std::uint8_t tag) {
    const auto header = Peek();
    return header && header->tag == tag;
}

bool SourceCursor::AtEnd() {
    if (!levels_.back().indefinite) return position_ == levels_.back().end;
    const auto header = HeaderHere();
    return header && header->IsEndOfContents();
}

bool SourceCursor::Enter(std::uint8_t tag) {
    const auto header = Peek();
    if (!header || header->tag != tag) return false;
    Enter(*header);
    return true;
}

void SourceCursor::Enter(const ElementHeader& header) {
    position_ += header.size;
    levels_.push_back({header.indefinite ? levels_.back().end : position_ + header.length, header.indefinite});
}

bool SourceCursor::Leave() {
    if (levels_.size() < 2 || !AtEnd()) return false;
    if (levels_.back().indefinite) position_ += 2;
    levels_.pop_back();
    return true;
}

bool SourceCursor::Skip(std::uint64_t most) {
    // Nested indefinite lengths are only counted, so that depth costs nothing.
    const std::uint64_t start = position_;
    std::uint64_t open = 0;
    do {
        const auto header = HeaderHere();
        if (!header) return false;
        position_ += header->size + header->length;
        if (header->indefinite) {
            ++open;
        } else if (header->IsEndOfContents()) {
            if (open == 0) return false;
            --open;
        }
        if (position_ - start > most) return false;
    } while (open > 0);
    return true;
}

}  // namespace platform::cms

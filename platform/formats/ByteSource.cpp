#include "platform/formats/ByteSource.h"

#include <algorithm>

namespace platform {

namespace {

constexpr std::size_t kWindow = std::size_t{1} << 20;

}  // namespace

std::optional<Bytes> ByteSource::Copy(std::uint64_t offset, std::size_t size) {
    if (offset > Size() || size > Size() - offset) return std::nullopt;
    Bytes copy;
    copy.reserve(size);
    while (copy.size() < size) {
        const auto piece = View(offset + copy.size(), 1, size - copy.size());
        if (!piece || piece->empty()) return std::nullopt;
        copy.insert(copy.end(), piece->begin(), piece->end());
    }
    return copy;
}

std::optional<ByteView> MemorySource::View(std::uint64_t offset, std::size_t, std::uint64_t most) {
    if (offset >= bytes_.size()) return ByteView{};
    const ByteView rest = bytes_.subspan(static_cast<std::size_t>(offset));
    return rest.first(static_cast<std::size_t>(std::min<std::uint64_t>(most, rest.size())));
}

std::optional<ByteView> FileSource::View(std::uint64_t offset, std::size_t least, std::uint64_t most) {
    if (offset >= Size()) return ByteView{};
    const std::uint64_t left = Size() - offset;
    const std::uint64_t needed = std::min<std::uint64_t>({least, left, most});
    const bool inside = offset >= start_ && offset - start_ <= filled_ && filled_ - (offset - start_) >= needed;
    if (!inside || offset - start_ == filled_) {
        const auto size = static_cast<std::size_t>(std::min<std::uint64_t>(left, kWindow));
        if (window_.size() < size) window_.resize(size);
        filled_ = 0;
        if (!file_.ReadExactly(offset, std::span(window_).first(size))) return std::nullopt;
        start_ = offset;
        filled_ = size;
    }
    const auto at = static_cast<std::size_t>(offset - start_);
    return ByteView(window_).subspan(at, static_cast<std::size_t>(std::min<std::uint64_t>(most, filled_ - at)));
}

}  // namespace platform

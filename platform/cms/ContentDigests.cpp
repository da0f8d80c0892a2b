#include "platform/cms/ContentDigests.h"

#include <algorithm>

#include "platform/cms/SignerInfo.h"

namespace platform::cms {

namespace {

// Signed attributes that are longer than this are recognised by their beginning.
constexpr std::size_t kHead = std::size_t{64} << 10;

bool IsSignedAttribute(const Attribute& attribute) {
    return attribute.oid == oid::kContentType || attribute.oid == oid::kMessageDigest;
}

}  // namespace

bool ContentDigests::Want(HashAlgorithm algorithm) {
    const bool known = Knows(algorithm) || std::any_of(running_.begin(), running_.end(),
                                                       [&](const auto& hash) { return hash.Algorithm() == algorithm; });
    if (known) return true;
    Hash hash(algorithm);
    if (!hash) return false;
    running_.push_back(std::move(hash));
    return true;
}

void ContentDigests::Update(ByteView piece) {
    if (!passed_) {
        const std::size_t wanted = std::min(piece.size(), kHead - head_.size());
        head_.insert(head_.end(), piece.begin(), piece.begin() + static_cast<std::ptrdiff_t>(wanted));
        size_ += piece.size();
    }
    for (auto& hash : running_)
        hash.Update(piece);
}

void ContentDigests::Finish() {
    for (auto& hash : running_)
        finished_[hash.Algorithm()] = hash.Finish();
    running_.clear();
    passed_ = true;
}

Bytes ContentDigests::Of(HashAlgorithm algorithm) const {
    const auto found = finished_.find(algorithm);
    return found != finished_.end() ? found->second : Bytes{};
}

bool ContentDigests::LooksLikeSignedAttributes() const {
    const auto header = ParseElementHeader(head_, DerRules::ber);
    if (!header || header->tag != platform::tag::kSet || header->indefinite) return false;
    if (header->length != size_ - header->size) return false;
    DerReader rest(ByteView(head_).subspan(header->size), DerRules::ber);
    while (const auto element = rest.Next(platform::tag::kSequence)) {
        const auto attribute = ReadAttributes(DerReader(element->encoded, DerRules::ber));
        if (!attribute) return false;
        if (IsSignedAttribute(attribute->front())) return true;
    }
    // Cut off by our own limit before anything told: rather no than a false yes.
    return size_ > head_.size() && rest.NextIs(platform::tag::kSequence);
}

}  // namespace platform::cms

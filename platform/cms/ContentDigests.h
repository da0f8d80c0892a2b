#pragma once
// Digests of a message's content in all the algorithms that its signers want, made in the pass that reads it.

#include <functional>
#include <map>
#include <vector>

#include "platform/Hash.h"
#include "platform/cms/SignedDataReader.h"

namespace platform::cms {

// Gets the content as it is read, before anybody knows whether it is good. False gives up.
using ContentSink = std::function<bool(ByteView)>;

class ContentDigests {
  public:
    // Adds an algorithm before the pass. False if the host lacks it.
    bool Want(HashAlgorithm algorithm);
    [[nodiscard]] bool Knows(HashAlgorithm algorithm) const { return finished_.contains(algorithm); }
    void Update(ByteView piece);
    // Ends the pass: what was wanted is known.
    void Finish();
    // Empty if it is not known.
    [[nodiscard]] Bytes Of(HashAlgorithm algorithm) const;
    [[nodiscard]] const std::map<HashAlgorithm, Bytes>& All() const { return finished_; }
    // The content decodes as the signed attributes of a message. A signature over it without signed attributes may
    // then be one that was made over attributes and moved here, so it proves nothing about the content.
    [[nodiscard]] bool LooksLikeSignedAttributes() const;

  private:
    std::vector<Hash> running_;
    std::map<HashAlgorithm, Bytes> finished_;
    Bytes head_;  // the first bytes of the content
    std::uint64_t size_ = 0;
    bool passed_ = false;  // the content has gone by once
};

}  // namespace platform::cms

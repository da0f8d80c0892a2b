#pragma once
// The second engine's look at a message: what it alone knows are the timestamp tokens.

#include <memory>

#include "platform/Messages.h"
#include "src/verification/SignatureEntry.h"
#include "toolkit/CkCrypt2W.h"
#include "toolkit/CkJsonObjectW.h"

namespace toolkit::cms {
struct Findings;
}

namespace verification {

class ToolkitCheck {
  public:
    // Checks a message whose content has been digested; nothing is read again. A signature that does not pass is told
    // to the log. `dataSize`: of detached data; none: the message holds its content. Nothing is found out about a
    // signature over empty detached data unless `emptyIsContent`.
    ToolkitCheck(const platform::SignedMessageParts& parts, std::optional<std::uint64_t> dataSize, bool emptyIsContent);

    // What the token of this signer says replaces what the entry says of it; hasTimestamp then means that the token's
    // own signature is good. An entry without a token among the unsigned attributes stays as it is.
    void CompleteTimestamp(std::uint32_t signer, SignatureEntry& entry);

    // Null if nothing was found out.
    [[nodiscard]] std::shared_ptr<const toolkit::cms::Findings> Findings();

  private:
    toolkit::CkCrypt2W crypt_;
    std::unique_ptr<toolkit::CkJsonObjectW> json_;
};

}  // namespace verification

#pragma once
// The verdict on every signer of a file.

#include <filesystem>
#include <functional>
#include <memory>
#include <optional>

#include "platform/formats/ByteSource.h"
#include "src/verification/SignatureEntry.h"

namespace toolkit::cms {
struct Findings;
}

namespace verification {

// One entry for each signer, in the order of the message, is appended to `entries`. For a detached signature the
// content is `dataFile`, or, if none is given, what stands under the signature's name less its last four characters;
// for an attached one it is not looked at. A bad signature gives an entry; std::runtime_error is thrown where there is
// nothing to judge, with the entries made so far left in place. The content is read once, in pieces. Blocks while the
// revocation of certificates is asked for on the network.
void VerifySignatureFile(const std::filesystem::path& signFile, const std::optional<std::filesystem::path>& dataFile,
                         SignatureEntries& entries);

// The same for who has opened the message and chooses the data otherwise.
struct MessageToVerify {
    std::shared_ptr<platform::ByteSource> message;
    // Opens the data beside the message. Called once, where they are needed; throws what there is to say if they are
    // not there.
    std::function<std::shared_ptr<platform::ByteSource>()> openData;
    bool alwaysBeside = false;  // also for a message that holds content: that is then not looked at
    // Content of no bytes is content. Otherwise it passes for none, as callers of the library know it.
    bool emptyIsContent = false;
};
// Answers what the second engine found, null if nothing: it alone knows whether timestamp tokens fit.
std::shared_ptr<const toolkit::cms::Findings> VerifyMessage(const MessageToVerify& input, SignatureEntries& entries);

}  // namespace verification

#pragma once
// The verdict on every signer of a file.

#include <filesystem>
#include <optional>

#include "src/verification/SignatureEntry.h"

namespace verification {

// One entry for each signer, in the order of the message, is appended to `entries`. For a detached signature the
// content is `dataFile`, or, if none is given, what stands under the signature's name less its last four characters;
// for an attached one it is not looked at. A bad signature gives an entry; std::runtime_error is thrown where there is
// nothing to judge, with the entries made so far left in place. The content is read once, in pieces. Blocks while the
// revocation of certificates is asked for on the network.
void VerifySignatureFile(const std::filesystem::path& signFile, const std::optional<std::filesystem::path>& dataFile,
                         SignatureEntries& entries);

}  // namespace verification

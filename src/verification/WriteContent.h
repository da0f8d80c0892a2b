#pragma once
// Taking messages apart. What fails throws std::runtime_error with the reason, and no half file is left.

#include <filesystem>
#include <memory>
#include <string_view>

#include "platform/formats/ByteSource.h"

namespace verification {

// Writes the content of a signed message to the target, replacing it; whether it is what was signed is for the caller
// to know. With a digest (hexadecimal, by the algorithm of the first signer, as SignatureEntry has it) nothing is
// written unless it is the content that has this digest: a file may change between its verification and this.
// Content of no bytes is refused unless `mayBeEmpty`.
void WriteContent(std::shared_ptr<platform::ByteSource> message, const std::filesystem::path& target,
                  std::u16string_view digest, bool mayBeEmpty = false);

// What of an attached signature goes into its detached form.
enum class DetachedParts {
    firstSigner,  // and nothing else: whoever verifies it has to have the certificate already
    everything,   // all signers, certificates and CRLs
};
// Writes an attached signature as a detached one, with the signers byte for byte. False if the target cannot be
// written, which is told to the log and in a box. Content of no bytes is refused unless everything is wanted.
bool WriteDetached(std::shared_ptr<platform::ByteSource> message, const std::filesystem::path& target,
                   DetachedParts parts);
// The first signer of a file, which must have the extension ".p7m".
bool ConvertToDetached(const std::filesystem::path& source, const std::filesystem::path& target);

}  // namespace verification

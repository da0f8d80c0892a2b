#pragma once
// The one pass over a file that is being signed: it is hashed and, for an attached signature, written on. What is
// hashed is what is written, byte for byte, because both read the same buffer.

#include <functional>
#include <optional>

#include "platform/Files.h"
#include "platform/Hash.h"
#include "toolkit/ClsCrypt2.h"

namespace toolkit::cms {

// Takes the next piece of the content; false stops the pass (who refuses has told the log why).
using ContentSink = std::function<bool(platform::ByteView)>;

// The digest of the whole file. With a sink, each piece also goes there, in order, while it is being hashed. The
// memory taken is a few MiB whatever the file's size. Empty, with the reason in the log, if the file can't be read or
// doesn't end where it did when it was opened.
std::optional<platform::Bytes> PassContent(const platform::InputFile& input, platform::HashAlgorithm hash,
                                           const ContentSink& sink, const ProgressHandler& progress, OperationLog& log);

}  // namespace toolkit::cms

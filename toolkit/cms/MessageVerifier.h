#pragma once
// Verifies a CMS SignedData (RFC 5652) and the timestamp tokens in it. Says whether the signatures are good; whether
// the signers' certificates are trusted is for the caller, who finds them in the findings.
//
//     platform::FileSource message(std::move(file));
//     const cms::Findings findings = cms::VerifyAttached(message, {}, log);
//     if (!findings.valid) ...
//
// What is decided here beyond the standard's letter, always so that nothing passes that nobody signed:
// - signed attributes need contentType (the content's type) and messageDigest, once each;
// - a signature without signed attributes is for content of type data only, and not for content that itself decodes as
//   signed attributes (such a signature can have been made over attributes);
// - signing certificate references and cmsAlgorithmProtection are checked when present;
// - a message without signers is not valid; all signers must pass;
// - behind the message only padding (NUL, blanks, line ends; up to 1 MiB) may stand.

#include <functional>

#include "toolkit/ClsBase.h"
#include "toolkit/cms/Findings.h"
#include "toolkit/cms/Message.h"

namespace toolkit::cms {

struct VerifyOptions {
    bool validateTimestamps = false;  // a fault of a timestamp token makes the message not valid
    bool checkChains = false;         // notes in the log whether the signers' certificates lead to a trusted root
    // Told while the content is read: bytes done and in all.
    std::function<void(std::uint64_t done, std::uint64_t total)> progress = {};
};

// The message holds its content. The sink, if any, gets it before the verdict: it must keep it to itself until then.
Findings VerifyAttached(platform::ByteSource& message, const VerifyOptions& options, OperationLog& log,
                        const ContentSink& sink = {});
// The content is given beside the message; one inside is not looked at.
Findings VerifyDetached(platform::ByteSource& message, platform::ByteSource& content, const VerifyOptions& options,
                        OperationLog& log);
// A message that somebody has read already.
struct DigestedMessage {
    const SignedDataMessage& message;
    // Of the content, in the algorithms of all signers where the host has them.
    const ContentDigests& digests;
    bool detached = false;  // the content stands beside the message
};
// The same findings without reading anything.
Findings VerifyDigested(const DigestedMessage& digested, const VerifyOptions& options, OperationLog& log);

}  // namespace toolkit::cms

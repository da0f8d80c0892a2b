#pragma once
// The one way in which messages and the tokens within them are verified; see MessageVerifier.h for the calls.

#include "toolkit/cms/MessageVerifier.h"
#include "toolkit/cms/SignerVerifier.h"

namespace toolkit::cms {

struct MessageSetting {
    platform::ByteSource& message;
    platform::ByteSource* detachedContent = nullptr;  // null: the message holds its content
    const VerifyOptions& options;
    const ContentSink& sink;
    const CertificatePool* outerPool = nullptr;  // null: the message is no token within another one
    const DigestedMessage* digested = nullptr;   // null: the message is still to be read
};

enum class MessageKind { signedData, otherMessage, unreadable };
struct MessageOutcome {
    MessageKind kind = MessageKind::unreadable;
    Findings findings;
};

// A token within the message is verified by the same steps, but tokens within a token are only named: that bounds the
// depth whatever the input says.
MessageOutcome VerifyMessage(const MessageSetting& setting, OperationLog& log);

}  // namespace toolkit::cms

#pragma once
// What a person asks of a signed file: to see its signatures, or to have what was signed.

#include <filesystem>

#include "src/ui/UserInterface.h"

namespace verification {

// Shows the person the verdict on every signer and answers what was shown; nothing after a failure and a cancelled
// question. An attached signature under the name ".p7s" is verified through a copy named
// ".p7m" in the session's folder, which stays until the next copy of that name. The data of a detached one stand beside
// it, under its name without the extension; if they do not, the person is asked for them, unless not `mayAsk`; an
// empty answer ends it. What VerifySignatureFile throws is shown in a box.
SignatureEntries ShowSignatures(ui::UserInterface& person, const std::filesystem::path& file, bool mayAsk);

// Takes the content of an attached signature into the session's folder, under the file's name without its extension,
// good or bad: the text tells. Both buffers are large enough for whatever there is to say. `pathOut` gets the path of
// what was taken out; `textOut`, unless null, six lines for each signature: L and its number, N the signer, D the local
// time of signing or "n/a", S the state, C the comment, T the thumbprint. 1 if content was taken out; 0 for a detached
// signature, and where nothing could be judged, which is shown in a box.
//
// The state is "Валиден" for a good signature whatever its certificate is, and else what the certificate is.
int ExtractContent(ui::UserInterface& person, const std::filesystem::path& file, char16_t* pathOut, char16_t* textOut,
                   bool mayAsk);

}  // namespace verification

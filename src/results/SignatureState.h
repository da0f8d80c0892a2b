#pragma once
// How the list of results and the report sum a signature up.

#include <string>

#include "crypt/Status.h"
#include "src/verification/SignatureEntry.h"

namespace results {

// Invalid if the signature is; else as the certificate is. A signature that merely could not be checked leaves the
// verdict to its certificate.
tessaly::StatusClass StateInList(const verification::SignatureEntry& entry);

// Who reads a report asks whether the document is what was signed: valid if the signature holds, whatever its
// certificate is; where it does not hold the certificate's state stands in its place.
tessaly::StatusClass StateInReport(const verification::SignatureEntry& entry);

// The word that stands beside the colour and the picture of a state.
std::u16string StateWord(tessaly::StatusClass state);

// Empty for an entry without certificate.
std::u16string SignerName(const verification::SignatureEntry& entry);

}  // namespace results

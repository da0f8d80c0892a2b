#pragma once
// Writes a SignedData (RFC 5652, 5.1) from parts that other messages brought along. What was signed once is never
// encoded anew: signers, certificates, CRLs and content keep their bytes, in BER where they came in BER; only what
// stands around them is written, in definite lengths.

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "platform/cms/SignedDataReader.h"
#include "platform/cms/SignerInfo.h"
#include "platform/formats/ByteSource.h"

namespace platform::cms {

struct SignedDataParts {
    std::uint8_t leastVersion = 1;  // that of the message which the parts come from; raised where they need it
    Bytes digestAlgorithms;         // contents of the SET: AlgorithmIdentifiers in a row
    std::string contentType;        // dotted, where encapContentInfo is not taken over
    Bytes certificates, crls;       // contents of [0] and [1]; empty: left out
    Bytes signerInfos;              // contents of the SET

    // The content: none, an encapContentInfo of a source as it stands, or the octets of a whole source.
    ByteSource* contentSource = nullptr;
    std::optional<SourceRange> encapContentInfo;
};

// All parts of a message that was read from this source, which must outlive them. Empty if the CRLs cannot be read.
std::optional<SignedDataParts> PartsOf(ByteSource& source, const SignedDataMessage& message);

// Adds the signer's digest algorithm, if it is not among those there, and the SignerInfo behind the others.
void AddSigner(SignedDataParts& parts, const SignerInfo& signer);
// Adds a certificate, unless the same one is there.
void AddCertificate(SignedDataParts& parts, ByteView encoded);

enum class WriteOutcome {
    ok,
    malformed,  // a part does not decode
    readFault,  // the source of the content failed (last error set)
    stopped,    // the sink gave up
};
WriteOutcome WriteSignedData(const SignedDataParts& parts, const std::function<bool(ByteView)>& sink);

}  // namespace platform::cms

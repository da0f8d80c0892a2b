#pragma once
// Answers of an OCSP responder (RFC 6960), good ones and bad ones.

#include "tests/support/Pki.h"

namespace tests {

struct OcspSpec {
    enum class Status { good, revoked, unknown };
    enum class Nonce { echo, none, other };
    Status status = Status::good;
    Nonce nonce = Nonce::echo;
    std::int64_t thisUpdate = std::time(nullptr) - 60;
    std::optional<std::int64_t> nextUpdate = std::time(nullptr) + kDay;
    std::optional<Certificate> about = {};  // another certificate than the one that was asked for
    bool byKey = false;                     // names the responder by its key instead of its name
    bool withSigner = false;                // brings the signer's certificate along
    bool breakSignature = false;
    bool criticalExtension = false;  // one that nobody knows, of the whole answer
    const char* hash = "SHA256";
    int responseStatus = 0;  // of OCSPResponse; another one than successful comes without an answer
};

// The OCSPResponse in DER to an OCSPRequest in DER about certificates of this issuer.
Bytes AnswerOcsp(ByteView request, const Certificate& issuer, const Certificate& signer, const OcspSpec& spec = {});

// The nonce's OCTET STRING in the request, as it stands; empty if there is none.
Bytes NonceOf(ByteView request);

}  // namespace tests

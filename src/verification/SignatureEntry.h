#pragma once
// What the verification found about one signer of a file. How a window, a report or a text sums it up differs from
// reader to reader.

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "crypt/CryptCertificate.h"

namespace verification {

struct SignatureEntry {
    std::unique_ptr<tessaly::CryptCertificate> certificate;  // the signer's
    std::uint32_t signStatus = 0;                            // 0, or why the signature does not hold
    std::u16string signMessage;                              // the words for signStatus
    std::uint32_t certStatus = 0;                            // 0, or the status word of the chain or the revocation;
                                                             // 0xFFFFFFFF: the chain could not be made
    std::int32_t certTimeValidity = 0;                       // now: -1 not yet valid, 0 valid, 1 expired
    std::u16string certMessage;                              // the words for certStatus
    bool noCrlUrl = false;                // the certificate names no CRL; known only where its own CRLs were asked
    std::u16string crlMessage;            // kept for readers; nothing fills it
    std::uint32_t level = 0;              // of nesting; every signer of a message stands at 0
    std::u16string hashAlgorithm;         // upper case; empty: not known
    std::int64_t signingTime = 0;         // seconds since 1970, as the signer claims; 0: absent
    std::u16string signingTimeText;       // local, "%F %T"
    bool hasTimestamp = false;            // a token is there; once it has been checked: that it is good
    std::u16string timestampIssuer;       // common name of who issued the authority's certificate
    std::u16string timestampCertificate;  // kept for readers; nothing fills it
    std::int64_t timestampTime = 0;       // genTime in seconds since 1970
    std::u16string timestampTimeText;     // local, "%F %T"
    std::u16string timestampSerial;       // of the token
    bool isCades = false;                 // signingCertificateV2 (RFC 5035) is signed
    std::u16string profile;               // "CAdES-BASELINE-B", "CAdES-BASELINE-T" or "CMS-NOT-ETSI"
    std::u16string digest;                // hexadecimal, of the content, by the algorithm of the first signer
    std::u16string comment;
};
using SignatureEntries = std::vector<SignatureEntry>;

}  // namespace verification

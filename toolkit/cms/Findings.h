#pragma once
// What the verification of one message found out: plain data, in the order in which a message is read. Texts are UTF-8.

#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "platform/Certificates.h"
#include "platform/Hash.h"
#include "platform/formats/TstInfo.h"

namespace toolkit::cms {

struct Findings;

// A timestamp token over a signature value (RFC 3161; RFC 5126 6.1.1).
struct TimestampFindings {
    std::unique_ptr<Findings> verify;       // the token as a message of its own; null if it is none
    bool signatureVerified = false;         // all signers of the token passed
    std::optional<platform::TstInfo> info;  // empty if the token's content is no TSTInfo
    std::string imprintHash;                // name of the imprint's digest
    bool digestMatches = false;             // the imprint is the digest of the signature value
    bool validated = false;                 // no fault at all
};

struct AttributeFindings {
    std::string oid, name;
    std::vector<std::pair<std::string, std::string>> members;
    std::vector<TimestampFindings> timestamps;  // one for each value, if the attribute holds tokens
};

struct CertificateFindings {
    std::string issuerCN, serial;  // the serial in upper-case hexadecimal
};

struct SignerFindings {
    platform::CertificateContext certificate;  // null if it was not found
    std::string serialNumber, issuerCN, issuerDN, subjectKeyIdentifier, digestAlgOid, digestAlgName;
    std::string contentType, signingTime, messageDigest;  // of the signed attributes; empty if absent
    std::string signingAlgOid, signingAlgName;
    std::vector<AttributeFindings> signedAttributes, unsignedAttributes;
    bool digestMatches = false;  // what the signer says of the content (true without signed attributes)
    bool signatureGood = false;  // the value, under the certificate's key
    bool unsupported = false;    // an algorithm of the signer is not known here, and the value was not looked at
    bool passed = false;         // both, and nothing else is wrong with the signer
};

struct Findings {
    bool isSignedData = false;  // else nothing of the rest was found
    std::vector<std::string> digestAlgorithms;
    bool useConstructedOctets = false;  // the content came in pieces
    bool omitAlgorithmIdNull = false;   // the first digest algorithm stands without its NULL
    std::string contentType;
    std::vector<CertificateFindings> certificates;
    std::vector<SignerFindings> signers;
    // Digests of the content, for who goes on with the same message.
    std::map<platform::HashAlgorithm, platform::Bytes> contentDigests;
    bool valid = false;  // at least one signer, all of them passed, and no timestamp fault that counts
};

}  // namespace toolkit::cms

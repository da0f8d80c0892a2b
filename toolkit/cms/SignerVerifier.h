#pragma once
// Verifies one signer of a message (RFC 5652 5.4 to 5.6).

#include "toolkit/ClsBase.h"
#include "toolkit/cms/Findings.h"
#include "toolkit/cms/Message.h"

namespace toolkit::cms {

// The certificates among which signers are looked for, nearest first: those of the message, and for a token those of
// the message that it stands in.
using CertificatePool = std::vector<platform::CertificateContext>;

// What the signer says, without any judgement.
SignerFindings DescribeSigner(const SignerInfo& signer);

// The signed digest against the content's, for a signer with signed attributes; notes the outcome in the findings.
void CheckDigest(const SignerInfo& signer, const ContentDigests& digests, SignerFindings& findings, OperationLog& log);

// Finds the certificate and checks the signature and everything else; sets the rest of the findings.
void CheckSigner(const SignerInfo& signer, const std::string& contentType, const ContentDigests& digests,
                 const CertificatePool& pool, SignerFindings& findings, OperationLog& log);

}  // namespace toolkit::cms

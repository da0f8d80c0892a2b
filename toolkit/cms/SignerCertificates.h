#pragma once
// The certificates that go along with a signature.

#include <optional>
#include <vector>

#include "platform/Certificates.h"
#include "toolkit/ClsBase.h"

namespace toolkit::cms {

// The signer's chain as far as the stores know it, root first and signer last, each distinguished name once; the signer
// alone if it is self-signed or no chain is wanted. Empty, with the reason in the log, on failure.
std::optional<std::vector<platform::CertificateContext>> CertificatesFor(const platform::CertificateContext& signer,
                                                                         bool includeChain, OperationLog& log);

}  // namespace toolkit::cms

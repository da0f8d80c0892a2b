#include "toolkit/cms/SignerCertificates.h"

#include <set>
#include <string_view>

#include "platform/Chains.h"
#include "toolkit/cms/PlatformFailure.h"

namespace toolkit::cms {

using platform::CertificateContext;

std::optional<std::vector<CertificateContext>> CertificatesFor(const CertificateContext& signer, bool includeChain,
                                                               OperationLog& log) {
    const platform::Bytes& signerName = signer.Info().Subject;
    if (!includeChain || signerName == signer.Info().Issuer) return std::vector{signer};

    const std::vector<CertificateContext> path = platform::BuildIssuerPath(signer);
    if (path.empty()) {
        LogPlatformFailure(log, "Failed to build certificate chain");
        return std::nullopt;
    }
    // The signer's own name is taken from the start: an issuer of that name must not push the signer out.
    std::set<std::string_view> names{platform::AsText(signerName)};
    std::vector<CertificateContext> certificates;
    for (auto issuer = path.rbegin(); issuer != path.rend(); ++issuer) {
        if (names.insert(platform::AsText(issuer->Info().Subject)).second) certificates.push_back(*issuer);
    }
    certificates.push_back(signer);
    return certificates;
}

}  // namespace toolkit::cms

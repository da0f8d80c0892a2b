#include "platform/posix/IssuerSearch.h"

#include <algorithm>

#include "platform/posix/Addresses.h"
#include "platform/posix/CertificateFile.h"
#include "platform/posix/PathBuilder.h"
#include "platform/posix/SignatureFacts.h"

namespace platform::posix {
namespace {

constexpr unsigned kMostRounds = 8;
constexpr std::size_t kMostCertificates = 32;
constexpr std::uint64_t kLargestAnswer = std::uint64_t{1} << 20;
constexpr const char* kAccept = "application/pkix-cert, application/pkcs7-mime, */*";

}  // namespace

bool IssuerSearch::FindIssuerOf(const CertificateContext& certificate) {
    if (rounds_++ >= kMostRounds) return false;
    for (const std::string& url : IssuerAddresses(certificate)) {
        const auto kept = cache_.Find(AnswerCache::Kind::issuer, url);
        if (kept && !kept->old && Take(certificate, kept->bytes)) return true;
        if (const auto answer = exchanges_.Get(url, kAccept, kLargestAnswer)) {
            if (Take(certificate, *answer)) {
                cache_.Keep(AnswerCache::Kind::issuer, url, *answer);
                return true;
            }
            LogHost("What " + url + " answered is not the issuer of the certificate.");
        } else if (kept && kept->old && Take(certificate, kept->bytes)) {
            return true;
        }
    }
    return false;
}

bool IssuerSearch::Take(const CertificateContext& certificate, ByteView answer) {
    std::vector<CertificateContext> found = ReadCertificateFile(answer).certificates;
    if (found.size() > kMostCertificates) found.resize(kMostCertificates);
    const bool hasIssuer = std::ranges::any_of(found, [&](const CertificateContext& candidate) {
        return IsIssuerName(certificate, candidate) && IsSignedBy(certificate, candidate);
    });
    return hasIssuer && sources_.AddIntermediates(found);
}

}  // namespace platform::posix

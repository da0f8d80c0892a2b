#include "platform/posix/RevocationService.h"

#include <array>

#include "platform/System.h"
#include "platform/posix/Addresses.h"
#include "platform/posix/CertificateFile.h"

namespace platform::posix {
namespace {

constexpr FILETIME kDay = 86'400 * kFileTimeUnitsPerSecond;
constexpr std::uint64_t kLargestCrl = std::uint64_t{64} << 20;

bool IsPresent(FILETIME at) {
    const FILETIME now = GetSystemTimeAsFileTime();
    return at < now + kDay && now < at + kDay;
}

}  // namespace

RevocationService::RevocationService(FILETIME at, ChainSources& sources, Exchanges& exchanges)
    : at_(at), sources_(sources), exchanges_(exchanges), isPresent_(IsPresent(at)) {}

RevocationFinding RevocationService::Of(const CandidatePath& path, std::size_t i, Reach reach) {
    if (path.signatureWrong[i]) return {};  // who stands above it did not issue it
    if (i + 1 < path.elements.size()) return Ask(std::span(path.elements).subspan(i), reach);
    RevocationFinding finding;
    for (const CertificateContext& issuer : path.anchorIssuers) {
        const std::array<CertificateContext, 2> withIssuer = {path.elements[i], issuer};
        const RevocationFinding answer = Ask(withIssuer, reach);
        if (answer.status == RevocationStatus::revoked) return answer;
        if (finding.status == RevocationStatus::unknown) finding = answer;
    }
    return finding;
}

RevocationFinding RevocationService::Ask(Path path, Reach reach) {
    const RevocationStatus status = CheckCrls(path, at_, sources_);
    if (status != RevocationStatus::unknown || reach == Reach::here) return {status, false};
    return AskNetwork(path);
}

RevocationFinding RevocationService::AskNetwork(Path path) {
    const std::vector<std::string> addresses = CrlAddresses(path.front());
    bool answered = false;
    for (const std::string& url : addresses) {
        const std::optional<CrlContext>& crl = FetchCrl(url);
        if (!crl) continue;
        if (!IsCredible(*crl, path, at_, sources_)) {
            LogHost("The CRL of " + url + " is not the current one of the certificate's issuer.");
            continue;
        }
        answered = true;
        sources_.AddCrl(*crl);
        const RevocationStatus status = CheckCrls(path, at_, sources_);
        if (status != RevocationStatus::unknown) return {status, false};
    }
    return {RevocationStatus::unknown, !addresses.empty() && !answered};
}

const std::optional<CrlContext>& RevocationService::FetchCrl(const std::string& url) {
    const auto [entry, isNew] = fetchedCrls_.try_emplace(url);
    if (!isNew || !isPresent_) return entry->second;
    const auto body = exchanges_.Get(url, "application/pkix-crl, */*", kLargestCrl);
    if (!body) return entry->second;
    CertificateFile file = ReadCertificateFile(*body);
    if (file.crls.size() == 1) {
        entry->second = std::move(file.crls.front());
    } else {
        LogHost("What " + url + " answered is no CRL.");
    }
    return entry->second;
}

void JudgeRevocation(const CandidatePath& path, ChainContext& chain, RevocationService& service, Reach reach) {
    constexpr std::uint32_t kBits =
        CERT_TRUST_IS_REVOKED | CERT_TRUST_REVOCATION_STATUS_UNKNOWN | CERT_TRUST_IS_OFFLINE_REVOCATION;
    chain.dwErrorStatus &= ~kBits;
    for (std::size_t i = chain.elements.size(); i-- > 0;) {
        CERT_CHAIN_ELEMENT& element = chain.elements[i];
        if (element.selfSigned) continue;
        const RevocationFinding finding = service.Of(path, i, reach);
        std::uint32_t bits = 0;
        if (finding.status == RevocationStatus::revoked) bits = CERT_TRUST_IS_REVOKED;
        if (finding.status == RevocationStatus::unknown) bits = CERT_TRUST_REVOCATION_STATUS_UNKNOWN;
        if (finding.silent) bits |= CERT_TRUST_IS_OFFLINE_REVOCATION;
        if (bits == CERT_TRUST_IS_REVOKED) reach = Reach::here;
        element.dwErrorStatus = (element.dwErrorStatus & ~kBits) | bits;
        chain.dwErrorStatus |= bits;
    }
}

}  // namespace platform::posix

#include "platform/posix/RevocationService.h"

#include <array>

#include "platform/System.h"
#include "platform/posix/Addresses.h"
#include "platform/posix/CertificateFile.h"

namespace platform::posix {
namespace {

constexpr FILETIME kHour = 3600 * kFileTimeUnitsPerSecond;
constexpr std::uint64_t kLargestCrl = std::uint64_t{64} << 20;
constexpr std::uint64_t kLargestAnswer = std::uint64_t{256} << 10;

bool IsPresent(FILETIME at) {
    const FILETIME now = GetSystemTimeAsFileTime();
    return at < now + kHour && now < at + kHour;
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

// What was learnt of one certificate while one after the other is asked.
struct RevocationService::Inquiry {
    RevocationStatus status = RevocationStatus::unknown;
    bool named = false;     // somebody is there to be asked
    bool answered = false;  // and gave a credible answer, be it that nothing is known

    [[nodiscard]] bool IsOver() const { return status != RevocationStatus::unknown; }
};

// Responders first: their answers are fresher and smaller.
RevocationFinding RevocationService::AskNetwork(Path path) {
    Inquiry inquiry;
    AskResponders(path, inquiry);
    if (!inquiry.IsOver()) AskForCrls(path, inquiry);
    return {inquiry.status, !inquiry.IsOver() && inquiry.named && !inquiry.answered};
}

void RevocationService::AskResponders(Path path, Inquiry& inquiry) {
    const std::vector<std::string> addresses = OcspAddresses(path.front());
    if (addresses.empty()) return;
    const OcspQuestion question(path);
    if (!question) return;
    inquiry.named = true;
    if (const auto known = answers_.find(question.Key()); known != answers_.end()) {
        inquiry.answered = true;
        inquiry.status = known->second;
        return;
    }
    for (const std::string& url : addresses) {
        const auto answer = FetchAnswer(question, url);
        if (!answer) continue;
        inquiry.answered = true;
        inquiry.status = answer->status;
        answers_[question.Key()] = answer->status;
        if (inquiry.IsOver()) return;
    }
}

std::optional<OcspAnswer> RevocationService::FetchAnswer(const OcspQuestion& question, const std::string& url) {
    if (!isPresent_) return std::nullopt;
    const auto body = exchanges_.Post(url, "application/ocsp-request", question.Request(), "application/ocsp-response",
                                      kLargestAnswer);
    if (!body) return std::nullopt;
    const auto answer = question.Judge(*body, OcspQuestion::Nonce::compare, at_, sources_);
    if (!answer) LogHost("The answer of " + url + " is not a credible one about the certificate.");
    return answer;
}

void RevocationService::AskForCrls(Path path, Inquiry& inquiry) {
    for (const std::string& url : CrlAddresses(path.front())) {
        inquiry.named = true;
        const std::optional<CrlContext>& crl = FetchCrl(url);
        if (!crl) continue;
        if (!IsCredible(*crl, path, at_, sources_)) {
            LogHost("The CRL of " + url + " is not the current one of the certificate's issuer.");
            continue;
        }
        inquiry.answered = true;
        sources_.AddCrl(*crl);
        inquiry.status = CheckCrls(path, at_, sources_);
        if (inquiry.IsOver()) return;
    }
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

#include "platform/posix/RevocationService.h"

#include <array>

#include "platform/System.h"
#include "platform/posix/Addresses.h"
#include "platform/posix/CertificateFile.h"
#include "platform/posix/CrlFacts.h"

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
    const RevocationStatus status = AskHere(path);
    if (status != RevocationStatus::unknown || reach == Reach::here) return {status, false};
    return AskNetwork(path);
}

// Whoever says revoked is believed.
RevocationStatus RevocationService::AskHere(Path path) {
    const RevocationStatus byCrls = CheckCrls(path, at_, sources_);
    if (byCrls == RevocationStatus::revoked) return byCrls;
    const RevocationStatus byAnswers = OfCarriedAnswers(path);
    return byAnswers == RevocationStatus::unknown ? byCrls : byAnswers;
}

RevocationStatus RevocationService::OfCarriedAnswers(Path path) {
    if (sources_.OcspAnswers().empty() || path.size() < 2) return RevocationStatus::unknown;
    const OcspQuestion question(path);
    if (!question) return RevocationStatus::unknown;
    const auto [entry, isNew] = carried_.try_emplace(question.Key(), RevocationStatus::unknown);
    RevocationStatus& status = entry->second;
    if (!isNew) return status;
    for (const Bytes& response : sources_.OcspAnswers()) {
        const auto answer = question.Judge(response, OcspQuestion::Nonce::ignore, at_, sources_);
        if (!answer) continue;
        if (answer->status == RevocationStatus::revoked) return status = RevocationStatus::revoked;
        if (answer->status == RevocationStatus::good) status = RevocationStatus::good;
    }
    return status;
}

// What was learnt of one certificate while one after the other is asked.
struct RevocationService::Inquiry {
    RevocationStatus status = RevocationStatus::unknown;
    bool named = false;     // somebody is there to be asked
    bool answered = false;  // and gave a credible answer, be it that nothing is known

    void Answer(RevocationStatus told) {
        answered = true;
        status = told;
    }
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
    if (!isPresent_) return;
    if (const auto known = answers_.find(question.Key()); known != answers_.end()) return inquiry.Answer(known->second);

    const KeptAnswer kept = FindKept(question);
    if (kept.credible && !kept.old) inquiry.Answer(kept.status);
    for (std::size_t i = 0; i < addresses.size() && !inquiry.IsOver(); ++i) {
        if (const auto answer = FetchAnswer(question, addresses[i])) inquiry.Answer(answer->status);
    }
    if (!inquiry.answered && kept.credible) inquiry.Answer(kept.status);
    if (inquiry.answered) answers_[question.Key()] = inquiry.status;
}

RevocationService::KeptAnswer RevocationService::FindKept(const OcspQuestion& question) {
    const auto kept = cache_.Find(AnswerCache::Kind::ocsp, question.Key());
    if (!kept) return {};
    const auto answer = question.Judge(kept->bytes, OcspQuestion::Nonce::ignore, at_, sources_);
    if (answer && !IsSignerRevoked(*answer)) return {.credible = true, .old = kept->old, .status = answer->status};
    cache_.Drop(AnswerCache::Kind::ocsp, question.Key());
    return {};
}

std::optional<OcspAnswer> RevocationService::FetchAnswer(const OcspQuestion& question, const std::string& url) {
    const auto body = exchanges_.Post(url, "application/ocsp-request", question.Request(), "application/ocsp-response",
                                      kLargestAnswer);
    if (!body) return std::nullopt;
    auto answer = question.Judge(*body, OcspQuestion::Nonce::compare, at_, sources_);
    if (answer && IsSignerRevoked(*answer)) answer.reset();
    if (!answer) LogHost("The answer of " + url + " is not a credible one about the certificate.");
    // Without an end the responder says that it always has newer ones.
    if (answer && answer->nextUpdate && answer->status != RevocationStatus::unknown)
        cache_.Keep(AnswerCache::Kind::ocsp, question.Key(), *body);
    return answer;
}

// The lists that a responder's certificate names are fetched: a stolen and revoked key could else go on answering.
bool RevocationService::IsSignerRevoked(const OcspAnswer& answer) {
    if (answer.openSigner.empty() || asksForSigner_) return false;
    asksForSigner_ = true;
    Inquiry inquiry;
    AskForCrls(answer.openSigner, inquiry);
    asksForSigner_ = false;
    return inquiry.status == RevocationStatus::revoked;
}

void RevocationService::AskForCrls(Path path, Inquiry& inquiry) {
    for (const std::string& url : CrlAddresses(path.front())) {
        inquiry.named = true;
        const auto crl = isPresent_ ? CrlAt(url, path) : std::nullopt;
        if (!crl) continue;
        sources_.AddCrl(*crl);
        AskForDelta(path, *crl);
        inquiry.Answer(CheckCrls(path, at_, sources_));
        if (inquiry.IsOver()) return;
    }
}

// What has changed since. The CRL counts without it, too: it tells itself until when.
void RevocationService::AskForDelta(Path path, const CrlContext& base) {
    for (const std::string& url : DeltaAddresses(path.front(), base)) {
        if (const auto delta = CrlAt(url, path)) return sources_.AddCrl(*delta);
    }
}

// A CRL whose signer is not the issuer itself counts when the signer is known as not revoked: whom the signer names is
// asked about it. A signer's CRL is the issuer's own, so nobody is asked further.
bool RevocationService::Believes(const CrlContext& crl, Path path) {
    const Credibility found = CredibilityOf(crl, path, at_, sources_);
    if (found.openSigners.empty() || asksForSigner_) return found.credible;
    asksForSigner_ = true;
    for (const auto& signer : found.openSigners) {
        Inquiry inquiry;
        AskForCrls(signer, inquiry);
    }
    asksForSigner_ = false;
    return CredibilityOf(crl, path, at_, sources_).credible;
}

// Empty if nobody answered, or with nothing credible.
std::optional<CrlContext> RevocationService::CrlAt(const std::string& url, Path path) {
    if (const auto known = crls_.find(url); known != crls_.end()) return known->second;
    const auto kept = cache_.FindCrl(url);
    const bool isCredible = kept && Believes(kept->crl, path);
    if (kept && !isCredible) cache_.Drop(AnswerCache::Kind::crl, url);
    std::optional<CrlContext> crl;
    if (isCredible && !kept->old) crl = kept->crl;
    if (!crl) crl = FetchCrl(url, path);
    if (!crl && isCredible) crl = kept->crl;
    if (crl) crls_[url] = *crl;
    return crl;
}

std::optional<CrlContext> RevocationService::FetchCrl(const std::string& url, Path path) {
    const auto body = exchanges_.Get(url, "application/pkix-crl, */*", kLargestCrl);
    if (!body) return std::nullopt;
    const CertificateFile file = ReadCertificateFile(*body);
    if (file.crls.size() != 1 || !Believes(file.crls.front(), path)) {
        LogHost("What " + url + " answered is not the current CRL of the certificate's issuer.");
        return std::nullopt;
    }
    if (FactsOf(file.crls.front())->hasEnd) cache_.Keep(AnswerCache::Kind::crl, url, *body);
    return file.crls.front();
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

#pragma once
// Whether one certificate of a path is revoked: by the CRLs on this machine and what came along, then by whom the
// certificate names.

#include <map>

#include "platform/posix/AnswerCache.h"
#include "platform/posix/CrlCheck.h"
#include "platform/posix/Exchanges.h"
#include "platform/posix/Ocsp.h"
#include "platform/posix/PathBuilder.h"

namespace platform::posix {

struct RevocationFinding {
    RevocationStatus status = RevocationStatus::unknown;
    bool silent = false;  // unknown, and somebody who was to be asked over the network did not answer
};

enum class Reach { here, network };

// Lives for one question and remembers what was answered meanwhile; not for several threads. Answers speak of the
// present: for a moment more than an hour away nobody is asked.
class RevocationService {
  public:
    RevocationService(FILETIME at, ChainSources& sources, Exchanges& exchanges);

    // Of element `i`. The issuers of a trusted end are asked too, though they are not in the path.
    RevocationFinding Of(const CandidatePath& path, std::size_t i, Reach reach);

  private:
    using Path = std::span<const CertificateContext>;
    RevocationFinding Ask(Path path, Reach reach);
    RevocationStatus AskHere(Path path);
    RevocationStatus OfCarriedAnswers(Path path);
    RevocationFinding AskNetwork(Path path);
    struct Inquiry;
    void AskResponders(Path path, Inquiry& inquiry);
    void AskForCrls(Path path, Inquiry& inquiry);
    void AskForDelta(Path path, const CrlContext& base);
    struct KeptAnswer {
        bool credible = false, old = false;
        RevocationStatus status = RevocationStatus::unknown;
    };
    [[nodiscard]] KeptAnswer FindKept(const OcspQuestion& question);
    bool IsSignerRevoked(const OcspAnswer& answer);
    std::optional<OcspAnswer> FetchAnswer(const OcspQuestion& question, const std::string& url);
    bool Believes(const CrlContext& crl, Path path);
    std::optional<CrlContext> CrlAt(const std::string& url, Path path);
    std::optional<CrlContext> FetchCrl(const std::string& url, Path path);

    FILETIME at_;
    ChainSources& sources_;
    Exchanges& exchanges_;
    bool isPresent_;
    bool asksForSigner_ = false;
    AnswerCache cache_;
    std::map<std::string, CrlContext> crls_;           // by address
    std::map<std::string, RevocationStatus> answers_;  // of responders, by the question's key
    std::map<std::string, RevocationStatus> carried_;  // the same of answers that came along
};

// Brings what the service finds into the chain of this path, from its upper end downwards. Below a revoked authority
// nobody is asked: its word on whom to ask counts for nothing.
void JudgeRevocation(const CandidatePath& path, ChainContext& chain, RevocationService& service, Reach reach);

}  // namespace platform::posix

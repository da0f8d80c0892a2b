#pragma once
// Questions to OCSP responders and what their answers are worth (RFC 6960).

#include <openssl/ocsp.h>

#include <optional>

#include "platform/posix/CrlCheck.h"

namespace platform::posix {

struct OcspAnswer {
    RevocationStatus status = RevocationStatus::unknown;  // unknown: the responder says that it does not know
    FILETIME thisUpdate = 0;
    std::optional<FILETIME> nextUpdate = {};
    // The path of the responder that signed it, if nobody at hand tells whether that one is revoked; else empty.
    std::vector<CertificateContext> openSigner = {};
};

// The question whether one certificate is revoked, with a nonce of its own.
class OcspQuestion {
  public:
    // `path` begins with the certificate and its issuer, and outlives the question.
    explicit OcspQuestion(std::span<const CertificateContext> path);
    // False if the two do not make a question (no issuer, a certificate that does not decode).
    explicit operator bool() const { return request_ != nullptr; }

    [[nodiscard]] Bytes Request() const;  // OCSPRequest in DER
    // Names certificate and issuer, whatever the nonce.
    [[nodiscard]] const std::string& Key() const { return key_; }

    enum class Nonce {
        compare,  // the answer to this very question: another nonce than its own is refused, none is not
        ignore    // an answer that was kept from an earlier time
    };
    // Empty for what is no credible answer: another status than successful, not about this certificate, not signed by
    // the issuer or by a responder that the issuer certified for it (usage OCSPSigning, valid, not known as revoked by
    // the CRLs at hand), from the future or past its nextUpdate (without one: past a week), or with critical
    // extensions that nobody here knows. Clocks may differ by five minutes.
    [[nodiscard]] std::optional<OcspAnswer> Judge(ByteView response, Nonce nonce, FILETIME at,
                                                  ChainSources& sources) const;

  private:
    std::span<const CertificateContext> path_;
    Owned<OCSP_REQUEST, OCSP_REQUEST_free> request_;
    std::string key_;
};

}  // namespace platform::posix

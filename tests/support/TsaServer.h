#pragma once
// A timestamp authority (RFC 3161) over HTTP on loopback, which can also misbehave in the ways authorities do.

#include <openssl/ts.h>

#include "tests/support/HttpServer.h"
#include "tests/support/Pki.h"

namespace tests {

struct TsaBehaviour {
    enum class Reply {
        granted,
        grantedWithMods,
        rejected,
        waiting,
        garbage,          // bytes that are no reply
        empty,            // no bytes
        wrongImprint,     // a good token over another digest
        wrongNonce,       // a good token that answers another request
        noNonce,          // a good token without the nonce
        noCertificates,   // although they were asked for
        otherPolicy,      // the authority's own, whatever was asked for
        brokenSignature,  // the last byte of the token's signature is changed
    };
    Reply reply = Reply::granted;
    int httpStatus = 200;  // another one comes with a short text as body
    std::chrono::milliseconds delay{0};
    bool drop = false;                            // closes the connection without an answer
    std::optional<std::string> credentials = {};  // "user:password"; without them the answer is 401
    int failure = TS_INFO_BAD_ALG;                // TS_INFO_..., of a reply that is rejected or waiting
    std::string statusText = {};                  // PKIFreeText of such a reply
    std::optional<std::int64_t> genTime = {};     // microseconds since 1970; none: now
    unsigned fractionDigits = 0;                  // of genTime, at most 6
    const char* signatureHash = "SHA256";
    std::string contentType = "application/timestamp-reply";
};

class TsaServer {
  public:
    // The certificate must have its key and be for timeStamping alone; the chain goes into tokens that ask for it.
    explicit TsaServer(Certificate authority, std::vector<Certificate> chain = {}, TsaBehaviour behaviour = {},
                       std::uint16_t port = 0);

    [[nodiscard]] std::string Url() const { return server_.Url("/tsa"); }
    [[nodiscard]] std::uint16_t Port() const { return server_.Port(); }
    [[nodiscard]] std::vector<HttpRequest> Requests() const { return server_.Requests(); }
    void Behave(TsaBehaviour behaviour);  // from the next request on

    // The reply in DER to a request in DER; also for tests without a network.
    [[nodiscard]] Bytes Reply(ByteView request, const TsaBehaviour& behaviour) const;

  private:
    [[nodiscard]] HttpAnswer Answer(const HttpRequest& request) const;

    Certificate authority_;
    std::vector<Certificate> chain_;
    mutable std::mutex mutex_;
    TsaBehaviour behaviour_;
    mutable std::atomic<long> serial_ = 1000;
    HttpServer server_;  // last, so that its threads end before what they use
};

}  // namespace tests

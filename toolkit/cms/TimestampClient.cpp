#include "toolkit/cms/TimestampClient.h"

#include "platform/Error.h"
#include "toolkit/cms/PlatformFailure.h"
#include "toolkit/cms/TimestampReply.h"
#include "toolkit/cms/TimestampRequest.h"
#include "toolkit/cms/TimestampToken.h"

namespace toolkit::cms {

using platform::Bytes;

namespace {

constexpr long kHttpOk = 200;

std::optional<TimestampRequest> MakeRequest(const TimestampOptions& options, platform::ByteView signature,
                                            OperationLog& log) {
    TimestampRequest request{.hash = options.hash,
                             .imprint = platform::Digest(options.hash, signature),
                             .policyOid = options.policyOid,
                             .nonce = {},
                             .certReq = options.requestTsaCert};
    if (options.addNonce) {
        request.nonce = MakeTimestampNonce();
        if (request.nonce.empty()) {
            LogPlatformFailure(log, "Failed to make the nonce of the timestamp request.");
            return std::nullopt;
        }
    }
    return request;
}

std::optional<Bytes> Exchange(const std::string& url, platform::ByteView query, const ClsHttp* http,
                              OperationLog& log) {
    static const ClsHttp kDefaultClient;
    const auto response = (http == nullptr ? kDefaultClient : *http)
                              .Post(url, query, "application/timestamp-query", "application/timestamp-reply", log);
    if (!response) return std::nullopt;
    platform::SetLastError(platform::ERROR_SUCCESS);  // what an authority refuses is no failure of the host
    if (response->status != kHttpOk) {
        log.Line("The timestamp server did not accept the request.");
        log.Value("httpStatus", std::to_string(response->status));
        return std::nullopt;
    }
    return response->body;
}

void LogRefusal(const TimestampReply& reply, OperationLog& log) {
    log.Line("Timestamp server reply does not indicate success.");
    log.Value("pkiStatus", PkiStatusName(reply.status));
    for (const std::string& failure : reply.failures)
        log.Value("failInfo", failure);
    for (const std::string& text : reply.texts)
        log.Value("statusString", text);
}

}  // namespace

std::optional<Bytes> GetTimestampToken(const TimestampOptions& options, platform::ByteView signature,
                                       const ClsHttp* http, OperationLog& log) {
    const auto context = log.Enter("getTimestampToken");
    if (!options.tsaUrl) {
        log.Line(
            "timestampToken.tsaUrl is missing.  (The SigningAttributes property must include a timestampToken.tsaUrl "
            "member.)");
        return std::nullopt;
    }
    log.Detail("tsaUrl", *options.tsaUrl);
    const auto request = MakeRequest(options, signature, log);
    if (!request) return std::nullopt;
    const Bytes query = EncodeTimestampRequest(*request);
    if (query.empty()) {
        log.Line("timestampToken.policyOid is not an object identifier.");
        return std::nullopt;
    }
    const auto answer = Exchange(*options.tsaUrl, query, http, log);
    if (!answer) return std::nullopt;
    auto reply = DecodeTimestampReply(*answer);
    if (!reply) {
        log.Line("The timestamp server's reply is not a timestamp response.");
        log.Value("numBytes", std::to_string(answer->size()));
        return std::nullopt;
    }
    if (!reply->Granted()) {
        LogRefusal(*reply, log);
        return std::nullopt;
    }
    log.Detail("pkiStatus", PkiStatusName(reply->status));
    if (!TokenAnswers(reply->token, *request, signature, log)) return std::nullopt;
    return std::move(reply->token);
}

}  // namespace toolkit::cms

#include "toolkit/cms/TimestampToken.h"

#include "platform/formats/TstInfo.h"
#include "toolkit/cms/Message.h"
#include "toolkit/cms/TimestampVerifier.h"

namespace toolkit::cms {

using platform::Bytes;

namespace {

// The TSTInfo of a token; the rest of the token goes into the message.
class TstInfoReceiver final : public ContentReceiver {
  public:
    bool Start(const SignedDataMessage&) override { return true; }
    bool Take(platform::ByteView piece) override {
        info_.insert(info_.end(), piece.begin(), piece.end());
        return true;
    }
    [[nodiscard]] const Bytes& Info() const { return info_; }

  private:
    Bytes info_;
};

bool Fail(OperationLog& log, std::string_view reason) {
    log.Line(reason);
    return false;
}

bool InfoAnswers(const platform::TstInfo& info, const TimestampRequest& request, OperationLog& log) {
    if (info.imprintAlgorithm.oid != platform::OidOf(request.hash) || info.imprint != request.imprint) {
        return Fail(log, "The timestamp token is not for this signature: its imprint is another one.");
    }
    if (!request.nonce.empty() && info.nonce != request.nonce) {
        return Fail(log, "The timestamp token does not answer this request: its nonce is another one.");
    }
    if (!request.policyOid.empty() && info.policy != request.policyOid) {
        log.Value("tsaPolicyId", info.policy);
        return Fail(log, "The timestamp token was issued under another policy than the one requested.");
    }
    log.Detail("genTime", info.genTime);
    log.Detail("tsaPolicyId", info.policy);
    return true;
}

}  // namespace

bool TokenAnswers(platform::ByteView token, const TimestampRequest& request, platform::ByteView stamped,
                  OperationLog& log) {
    platform::MemorySource source(token);
    TstInfoReceiver receiver;
    SignedDataMessage message;
    const bool isSignedData = ReadSignedData(source, receiver, message) == ReadOutcome::ok;
    const auto info =
        isSignedData && message.contentType == oid::kTstInfo ? platform::ReadTstInfo(receiver.Info()) : std::nullopt;
    const auto signers = isSignedData ? ReadSignerInfos(message.signerInfos) : std::nullopt;
    if (!info || !signers || signers->size() != 1) {
        return Fail(log, "Failed to decode the received timestamp token.");
    }
    if (!InfoAnswers(*info, request, log)) return false;
    // Without its certificates a token is taken as it is when nobody asked for them: then others must know them.
    if (message.certificates.empty() && !request.certReq) return true;
    if (message.certificates.empty()) {
        return Fail(log, "The timestamp token holds no certificates although they were requested.");
    }
    const auto context = log.Enter("verifyTimestampToken");
    if (VerifyTimestamp(token, platform::CopyOf(stamped), {}, log).validated) return true;
    return Fail(log, "The signature of the timestamp token does not verify.");
}

}  // namespace toolkit::cms

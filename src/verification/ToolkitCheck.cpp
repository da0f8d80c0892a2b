#include "src/verification/ToolkitCheck.h"

#include "src/Norvik.h"
#include "src/verification/TimeText.h"
#include "toolkit/CkDateTimeW.h"
#include "toolkit/cms/MessageVerifier.h"

namespace verification {
namespace {

constexpr char16_t kToken[] = u"pkcs7.verify.signerInfo[i].unauthAttr.\"1.2.840.113549.1.9.16.2.14\"";

std::u16string TextOf(toolkit::CkJsonObjectW& json, const std::u16string& path) {
    const auto* const text = json.StringOf(path.c_str());
    return text != nullptr ? text : std::u16string();
}

}  // namespace

ToolkitCheck::ToolkitCheck(const platform::SignedMessageParts& parts, std::optional<std::uint64_t> dataSize,
                           bool emptyIsContent) {
    if (dataSize == 0 && !emptyIsContent) return;
    if (dataSize) {
        toolkit::CkJsonObjectW options;
        options.UpdateBool(u"ValidateTimestampTokens", true);
        crypt_.put_CmsOptions(options.Emit());
    }
    const toolkit::cms::DigestedMessage message{parts.message, parts.digests, dataSize.has_value()};
    if (crypt_.Implementation().VerifyDigested(message)) return;
    json_ = crypt_.LastJsonData();
    if (!json_) return;
    json_->put_EmitCompact(false);
    LogError(json_->Emit());
}

void ToolkitCheck::CompleteTimestamp(std::uint32_t signer, SignatureEntry& entry) {
    if (!entry.hasTimestamp) return;
    if (!json_) json_ = crypt_.LastJsonData();
    if (!json_) return;
    json_->put_I(static_cast<int>(signer));
    const std::u16string token = kToken;
    if (!json_->HasMember(token.c_str())) return;
    entry.hasTimestamp = json_->BoolOf((token + u".timestampSignatureVerified").c_str());
    entry.timestampIssuer = TextOf(*json_, token + u".verify.signerInfo[0].cert.issuerCN");
    entry.timestampSerial = TextOf(*json_, token + u".tstInfo.serialNumber");
    const auto genTime = token + u".tstInfo.genTime";
    if (!json_->HasMember(genTime.c_str())) return;
    toolkit::CkDateTimeW date;
    date.SetFromTimestamp(TextOf(*json_, genTime).c_str());
    entry.timestampTime = date.GetAsUnixTime(false);
    entry.timestampTimeText = LocalTimeText(entry.timestampTime);
}

std::shared_ptr<const toolkit::cms::Findings> ToolkitCheck::Findings() {
    return crypt_.Implementation().LastFindings();
}

}  // namespace verification

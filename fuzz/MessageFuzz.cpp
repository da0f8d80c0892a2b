// Any bytes as a message, as a signature beside its data, and as both in pieces. The seeds hold signed messages, so a
// signature may be good; what must hold is that a good one has a certificate and content or data, that pieces make no
// difference, and that what was read can be written again so that the same signers stand in it.

#include <cstdlib>

#include "crypt/CryptMessage.h"
#include "platform/cms/SignerInfo.h"

namespace {

using namespace platform;

void Require(bool condition) {
    if (!condition) std::abort();
}

void AskAll(tessaly::CryptMessageDecode& decoder) {
    const std::uint32_t signers = decoder.GetSignerCount();
    for (std::uint32_t i = 0; i < std::min(signers, 4U); ++i) {
        tessaly::CryptOID algorithm;
        decoder.GetHashAlgorithm(i, algorithm);
        decoder.GetSigningTime(i);
        decoder.GetComment(i);
        decoder.IsCades(i);
        decoder.HasTimestamp(i);
        const auto certificate = decoder.GetSignerCertificate(i);
        const auto status = CryptMsgGetAndVerifySigner(decoder.message, i, {decoder.store.store});
        Require(status.has_value() && (status->certificate || status->status == CRYPT_E_SIGNER_NOT_FOUND));
        if (status->status != ERROR_SUCCESS) continue;
        Require(certificate != nullptr);
        Require(decoder.GetParam(CMSG_COMPUTED_HASH_PARAM, i).has_value());
    }
}

void WriteAgain(const CryptMsg& message) {
    CMSG_SIGNED_ENCODE_INFO info;
    const auto count = CryptMsgGetParam(message, CMSG_SIGNER_COUNT_PARAM).value_or(0);
    for (std::uint32_t i = 0; i < count; ++i)
        info.rgSigners.push_back(CryptMsgGetParam(message, CMSG_CMS_SIGNER_INFO_PARAM, i).value());
    const auto type = CryptMsgGetParam(message, CMSG_INNER_CONTENT_TYPE_PARAM);
    if (!type) return;
    const auto written = CryptMsgOpenToEncode(PKCS_7_ASN_ENCODING, CMSG_DETACHED_FLAG, CMSG_SIGNED, info, *type);
    if (!written) return;  // an identifier that text cannot hold
    Require(CryptMsgUpdate(written, ByteView(), true));
    const auto bytes = CryptMsgGetParam(written, CMSG_ENCODED_MESSAGE);
    Require(bytes.has_value());
    const auto again = CryptMsgOpenToDecode(PKCS_7_ASN_ENCODING, CMSG_DETACHED_FLAG);
    Require(CryptMsgUpdate(again, *bytes, true));
    Require(CryptMsgGetParam(again, CMSG_SIGNER_COUNT_PARAM) == count);
    for (std::uint32_t i = 0; i < count; ++i)
        Require(CryptMsgGetParam(again, CMSG_CMS_SIGNER_INFO_PARAM, i)->Encoded == info.rgSigners[i].Encoded);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const ByteView bytes(data, size);
    tessaly::CryptMessageDecode attached, pieces, detached;
    Require(attached.OpenToDecode(0) && pieces.OpenToDecode(0) && detached.OpenToDecode(CMSG_DETACHED_FLAG));
    const bool read = attached.Update(bytes, true);
    const std::size_t half = size / 2;
    Require(pieces.Update(bytes.first(half), false));
    Require(pieces.Update(bytes.subspan(half), true) == read);
    Require(read || attached.lastError != 0);
    Require(detached.Update(bytes, true) == read);
    if (!read) return 0;
    const auto content = attached.GetParam(CMSG_CONTENT_PARAM);
    Require(content == pieces.GetParam(CMSG_CONTENT_PARAM));
    const auto contentSize = CryptMsgGetContentSize(attached.message);
    Require(!contentSize || (content && content->size() == *contentSize));
    Require(detached.Update(AsBytes("content"), true));
    AskAll(attached);
    AskAll(detached);
    WriteAgain(attached.message);
    return 0;
}

#include <utility>

#include "platform/cms/SignedDataWriter.h"
#include "platform/formats/Oid.h"
#include "platform/posix/Message.h"

namespace platform {
namespace {

using posix::FailWith;

// A signed message put together from parts of others, and its content.
class EncodedMessage final : public CryptMsg::Impl {
  public:
    EncodedMessage(cms::SignedDataParts parts, bool detached) : parts_(std::move(parts)), detached_(detached) {}

    bool Update(ByteView piece, bool final) override {
        if (complete_) return FailWith(CRYPT_E_MSG_ERROR);
        if (!detached_ && !spool_.Append(piece)) return false;
        if (final && !detached_ && !(content_ = spool_.Finish())) return false;
        complete_ = final;
        return true;
    }

    bool Update(std::shared_ptr<ByteSource> source) override {
        if (complete_ || !source) return FailWith(complete_ ? CRYPT_E_MSG_ERROR : ERROR_INVALID_PARAMETER);
        if (!detached_) content_ = std::move(source);
        return complete_ = true;
    }

    bool WriteEncoded(const MessageSink& sink) override {
        if (!complete_) return FailWith(CRYPT_E_MSG_ERROR);
        SetLastError(ERROR_SUCCESS);
        parts_.contentSource = content_.get();
        switch (cms::WriteSignedData(parts_, sink)) {
            case cms::WriteOutcome::ok:
                return true;
            case cms::WriteOutcome::malformed:
                return FailWith(CRYPT_E_BAD_ENCODE);
            case cms::WriteOutcome::readFault:
                return GetLastError() == 0 ? FailWith(ERROR_READ_FAULT) : false;
            case cms::WriteOutcome::stopped:
                break;
        }
        return FailWith(ERROR_CANCELLED);
    }

  private:
    cms::SignedDataParts parts_;
    bool detached_;
    bool complete_ = false;
    Spool spool_;
    std::shared_ptr<ByteSource> content_;
};

// The parts that the caller brings along. Empty if a signer does not decode.
std::optional<cms::SignedDataParts> PartsFrom(const CMSG_SIGNED_ENCODE_INFO& info, std::string_view contentType) {
    if (!OidFromText(contentType)) return std::nullopt;
    cms::SignedDataParts parts;
    parts.contentType = contentType;
    for (const auto& given : info.rgSigners) {
        const auto signers = cms::ReadSignerInfos(given.Encoded);
        if (!signers || signers->size() != 1) return std::nullopt;
        cms::AddSigner(parts, signers->front());
    }
    for (const auto& certificate : info.rgCertEncoded)
        cms::AddCertificate(parts, certificate);
    for (const auto& crl : info.rgCrlEncoded)
        parts.crls.insert(parts.crls.end(), crl.begin(), crl.end());
    return parts;
}

}  // namespace

CryptMsg CryptMsgOpenToDecode(std::uint32_t encoding, std::uint32_t flags) {
    if ((encoding & PKCS_7_ASN_ENCODING) == 0 || (flags & ~CMSG_DETACHED_FLAG) != 0) {
        return FailWith<CryptMsg>(ERROR_INVALID_PARAMETER);
    }
    return CryptMsg(std::make_shared<posix::DecodedMessage>((flags & CMSG_DETACHED_FLAG) != 0));
}

CryptMsg CryptMsgOpenToEncode(std::uint32_t encoding, std::uint32_t flags, std::uint32_t type,
                              const CMSG_SIGNED_ENCODE_INFO& info, std::string_view innerContentType) {
    if ((encoding & PKCS_7_ASN_ENCODING) == 0 || (flags & ~CMSG_DETACHED_FLAG) != 0) {
        return FailWith<CryptMsg>(ERROR_INVALID_PARAMETER);
    }
    if (type != CMSG_SIGNED) return FailWith<CryptMsg>(CRYPT_E_UNEXPECTED_MSG_TYPE);
    auto parts = PartsFrom(info, innerContentType);
    if (!parts) return FailWith<CryptMsg>(CRYPT_E_BAD_ENCODE);
    return CryptMsg(std::make_shared<EncodedMessage>(std::move(*parts), (flags & CMSG_DETACHED_FLAG) != 0));
}

bool CryptMsgUpdate(const CryptMsg& message, ByteView piece, bool final) {
    return message ? message.Backend()->Update(piece, final) : FailWith(ERROR_INVALID_HANDLE);
}

bool CryptMsgUpdate(const CryptMsg& message, std::shared_ptr<ByteSource> source) {
    return message ? message.Backend()->Update(std::move(source)) : FailWith(ERROR_INVALID_HANDLE);
}

bool CryptMsgWriteEncodedMessage(const CryptMsg& message, const MessageSink& sink) {
    return message ? message.Backend()->WriteEncoded(sink) : FailWith(ERROR_INVALID_HANDLE);
}

}  // namespace platform

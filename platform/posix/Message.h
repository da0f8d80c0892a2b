#pragma once
// What lies behind a message handle: a message that is read, or one that is written.

#include "platform/Messages.h"
#include "platform/cms/ContentDigests.h"
#include "platform/cms/SignedDataReader.h"
#include "platform/cms/SignerInfo.h"
#include "platform/formats/Spool.h"

namespace platform {

namespace posix {
class DecodedMessage;
}

class CryptMsg::Impl {
  public:
    virtual ~Impl() = default;
    virtual bool Update(ByteView piece, bool final) = 0;
    virtual bool Update(std::shared_ptr<ByteSource> source) = 0;
    virtual bool WriteEncoded(const MessageSink& sink) = 0;
    // Null while it is not one that has been read.
    virtual posix::DecodedMessage* Decoded() { return nullptr; }
};

namespace posix {

// No message has more; a hostile one could keep its reader busy for hours.
constexpr std::size_t kMostMessageSigners = 1024;
constexpr std::size_t kMostMessageCertificates = 4096;
// What is handed out as one piece of memory.
constexpr std::uint64_t kMostMessageBytes = std::uint64_t{256} << 20;

class DecodedMessage final : public CryptMsg::Impl {
  public:
    explicit DecodedMessage(bool detached) : detached_(detached) {}

    bool Update(ByteView piece, bool final) override;
    bool Update(std::shared_ptr<ByteSource> source) override;
    bool WriteEncoded(const MessageSink& sink) override;
    DecodedMessage* Decoded() override { return state_ == State::message ? nullptr : this; }

    [[nodiscard]] std::uint32_t Type() const { return type_; }
    // Of a signed message.
    [[nodiscard]] const cms::SignedDataMessage& Parts() const { return parts_; }
    [[nodiscard]] const std::vector<cms::SignerInfo>& Signers() const { return signers_; }
    [[nodiscard]] std::uint64_t Size() const { return source_->Size(); }
    // The content that stands in the message itself; null without any.
    [[nodiscard]] const cms::ContentPlace* Content() const { return content_ ? &*content_ : nullptr; }
    bool ReadContent(const MessageSink& sink);
    // Makes sure that the content has been digested, if there is any. False if it cannot be read.
    bool Digest();
    // Whether there was anything to digest.
    [[nodiscard]] bool HasDigests() const { return digested_; }
    [[nodiscard]] const cms::ContentDigests& Digests() const { return digests_; }
    // What was found of this signer with this certificate; checking once is enough for all who ask.
    [[nodiscard]] std::optional<ErrorCode> KnownStatus(std::uint32_t signer, const CertificateContext& with) const;
    void RememberStatus(std::uint32_t signer, const CertificateContext& with, ErrorCode status);
    // Encoded certificates and CRLs, in the order of the message. Views last as long as the message.
    const std::vector<ByteView>& Certificates();
    const std::vector<ByteView>& Crls();
    // What stands among the CRLs in formats of other kinds: [1] OtherRevocationInfoFormat (RFC 5652, 10.2.1).
    const std::vector<ByteView>& OtherRevocationInfos();

  private:
    enum class State { message, data, complete };
    struct Checked {
        std::uint32_t signer;
        CertificateContext with;
        ErrorCode status;
    };
    bool UpdateMessage(ByteView piece, bool final);
    bool UpdateData(ByteView piece, bool final);
    bool Open(std::shared_ptr<ByteSource> source);
    bool OpenSigned();
    bool OpenOther();
    [[nodiscard]] cms::ContentDigests WantedDigests() const;
    bool PassContent(const MessageSink& take);
    void ReadRevocationInfos();

    bool detached_;
    State state_ = State::message;
    Spool spool_;
    std::shared_ptr<ByteSource> source_, data_;
    std::uint32_t type_ = 0;
    cms::SignedDataMessage parts_;
    std::vector<cms::SignerInfo> signers_;
    std::optional<cms::ContentPlace> content_;
    cms::ContentDigests digests_;
    bool digested_ = false;
    std::vector<Checked> checked_;
    std::optional<std::vector<ByteView>> certificates_, crls_;
    std::vector<ByteView> otherInfos_;
    Bytes crlBytes_;
};

// The message if it has been read whole, otherwise null with CRYPT_E_MSG_ERROR (ERROR_INVALID_HANDLE for no message at
// all). The signed one: of other types null with CRYPT_E_UNEXPECTED_MSG_TYPE.
DecodedMessage* ReadMessage(const CryptMsg& message);
DecodedMessage* ReadSignedMessage(const CryptMsg& message);
// A signer of the signed message: null with CRYPT_E_INVALID_INDEX, too.
const cms::SignerInfo* SignerOf(const CryptMsg& message, std::uint32_t index);
CERT_ID CertIdOf(const cms::SignerInfo& signer);

// Sets the last error.
template <typename Result = bool>
Result FailWith(ErrorCode code, Result result = {}) {
    SetLastError(code);
    return result;
}

}  // namespace posix

}  // namespace platform

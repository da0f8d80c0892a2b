#include <array>
#include <utility>

#include "platform/Hash.h"
#include "platform/cms/SourceCursor.h"
#include "platform/posix/Message.h"

namespace platform::posix {
namespace {

struct TypeRow {
    std::string_view oid;
    std::uint32_t type;
};
constexpr std::array kTypes = {
    TypeRow{cms::oid::kData, CMSG_DATA},
    TypeRow{"1.2.840.113549.1.7.3", CMSG_ENVELOPED},
    TypeRow{"1.2.840.113549.1.7.4", CMSG_SIGNED_AND_ENVELOPED},
    TypeRow{"1.2.840.113549.1.7.5", CMSG_HASHED},
    TypeRow{"1.2.840.113549.1.7.6", CMSG_ENCRYPTED},
};

std::uint32_t TypeOf(std::string_view oid) {
    for (const auto& row : kTypes) {
        if (row.oid == oid) return row.type;
    }
    return 0;
}

// Why a source that did not decode is refused.
ErrorCode MalformedCode(ByteSource& source) {
    const auto start = source.View(0, kLongestElementHeader, kLongestElementHeader);
    if (!start || start->empty()) return CRYPT_E_ASN1_EOD;
    if (start->front() != tag::kSequence) return CRYPT_E_ASN1_BADTAG;
    cms::SourceCursor whole(source, 0, source.Size());
    // Whether a long one of indefinite length ends at all is not worth the walk.
    const bool ends = whole.Skip(cms::kMostMetadata) || whole.Position() > cms::kMostMetadata;
    return ends ? CRYPT_E_BAD_ENCODE : CRYPT_E_ASN1_EOD;
}

bool Judge(cms::ReadOutcome outcome, ByteSource& source) {
    switch (outcome) {
        case cms::ReadOutcome::ok:
            return true;
        case cms::ReadOutcome::malformed:
            return FailWith(MalformedCode(source));
        case cms::ReadOutcome::notSignedData:
            return FailWith(CRYPT_E_UNEXPECTED_MSG_TYPE);
        case cms::ReadOutcome::readFault:
            return GetLastError() == 0 ? FailWith(ERROR_READ_FAULT) : false;
        case cms::ReadOutcome::stopped:
            return FailWith(ERROR_CANCELLED);
        case cms::ReadOutcome::tooLarge:
            return FailWith(ERROR_FILE_INVALID);
    }
    return FailWith(CRYPT_E_BAD_ENCODE);
}

// Leaves the content alone: nobody has asked for it yet.
class StructureOnly final : public cms::ContentReceiver {
  public:
    bool Start(const cms::SignedDataMessage&) override { return false; }
    bool Take(ByteView) override { return false; }
};

bool PassSource(ByteSource& source, const MessageSink& take) {
    for (std::uint64_t offset = 0; offset < source.Size();) {
        const auto piece = source.View(offset, 1, source.Size() - offset);
        if (!piece || piece->empty()) return GetLastError() == 0 ? FailWith(ERROR_READ_FAULT) : false;
        if (!take(*piece)) return FailWith(ERROR_CANCELLED);
        offset += piece->size();
    }
    return true;
}

// The elements that stand in a row, as far as they decode and as many as are taken.
std::vector<ByteView> ElementsIn(ByteView contents, std::uint8_t tag = tag::kSequence) {
    std::vector<ByteView> elements;
    DerReader reader(contents, DerRules::ber);
    while (elements.size() < kMostMessageCertificates) {
        const auto element = reader.Next();
        if (!element) break;
        // Attribute certificates and other formats stand under tags of their own.
        if (element->tag == tag) elements.push_back(element->encoded);
    }
    return elements;
}

}  // namespace

bool DecodedMessage::Update(ByteView piece, bool final) {
    switch (state_) {
        case State::message:
            return UpdateMessage(piece, final);
        case State::data:
            return UpdateData(piece, final);
        case State::complete:
            break;
    }
    return FailWith(CRYPT_E_MSG_ERROR);
}

bool DecodedMessage::UpdateMessage(ByteView piece, bool final) {
    if (!spool_.Append(piece)) return false;
    return !final || Open(spool_.Finish());
}

bool DecodedMessage::UpdateData(ByteView piece, bool final) {
    if (data_) return FailWith(CRYPT_E_MSG_ERROR);
    digests_.Update(piece);
    if (!final) return true;
    digests_.Finish();
    digested_ = true;
    state_ = State::complete;
    return true;
}

bool DecodedMessage::Update(std::shared_ptr<ByteSource> source) {
    if (!source) return FailWith(ERROR_INVALID_PARAMETER);
    if (state_ == State::message) return Open(std::move(source));
    if (state_ == State::complete) return FailWith(CRYPT_E_MSG_ERROR);
    data_ = std::move(source);
    state_ = State::complete;
    return true;
}

bool DecodedMessage::Open(std::shared_ptr<ByteSource> source) {
    if (!source) return false;
    source_ = std::move(source);
    parts_ = {};
    SetLastError(ERROR_SUCCESS);
    StructureOnly nobody;
    const auto outcome = cms::ReadSignedData(*source_, nobody, parts_);
    const bool read =
        outcome == cms::ReadOutcome::notSignedData ? OpenOther() : Judge(outcome, *source_) && OpenSigned();
    if (!read) return false;
    // Also where it is not looked at: whether bytes are a message does not depend on what is asked of them.
    const auto& content = type_ == CMSG_SIGNED ? parts_.content : content_;
    const bool isData = type_ == CMSG_DATA || parts_.contentType == cms::oid::kData;
    if (content && !content->octetString && isData) return FailWith(CRYPT_E_BAD_ENCODE);
    state_ = detached_ ? State::data : State::complete;
    return true;
}

bool DecodedMessage::OpenSigned() {
    type_ = CMSG_SIGNED;
    auto signers = cms::ReadSignerInfos(parts_.signerInfos);
    if (!signers || signers->size() > kMostMessageSigners) return FailWith(CRYPT_E_BAD_ENCODE);
    signers_ = std::move(*signers);
    if (!detached_) content_ = parts_.content;
    digests_ = WantedDigests();
    return true;
}

bool DecodedMessage::OpenOther() {
    cms::ContentInfoHead head;
    if (!Judge(cms::ReadContentInfo(*source_, head), *source_)) return false;
    type_ = TypeOf(head.type);
    if (type_ == 0) return FailWith(CRYPT_E_UNEXPECTED_MSG_TYPE);
    content_ = head.data;
    return true;
}

// In the algorithms of all signers, whether the message announces them or not, so that one pass is enough.
cms::ContentDigests DecodedMessage::WantedDigests() const {
    cms::ContentDigests digests;
    const auto want = [&](const AlgorithmIdentifier& algorithm) {
        if (const auto hash = HashFromOid(algorithm.oid)) digests.Want(*hash);
    };
    for (const auto& algorithm : parts_.digestAlgorithms)
        want(algorithm);
    for (const auto& signer : signers_)
        want(signer.digestAlgorithm);
    return digests;
}

bool DecodedMessage::PassContent(const MessageSink& take) {
    SetLastError(ERROR_SUCCESS);
    if (data_) return PassSource(*data_, take);
    return Judge(cms::ReadContentAgain(*source_, *content_, take), *source_);
}

bool DecodedMessage::ReadContent(const MessageSink& sink) {
    if (!data_ && !content_) return FailWith(CRYPT_E_NOT_FOUND);
    if (digested_ || type_ != CMSG_SIGNED) {
        return PassContent([&](ByteView piece) { return !sink || sink(piece); });
    }
    // A pass that is broken off leaves nothing behind, so that the next one starts anew.
    cms::ContentDigests digests = WantedDigests();
    const bool passed = PassContent([&](ByteView piece) {
        digests.Update(piece);
        return !sink || sink(piece);
    });
    if (!passed) return false;
    digests.Finish();
    digests_ = std::move(digests);
    digested_ = true;
    return true;
}

bool DecodedMessage::Digest() {
    return digested_ || (!data_ && !content_) || ReadContent({});
}

bool DecodedMessage::WriteEncoded(const MessageSink& sink) {
    if (state_ == State::message) return FailWith(CRYPT_E_MSG_ERROR);
    SetLastError(ERROR_SUCCESS);
    return PassSource(*source_, sink);
}

std::optional<ErrorCode> DecodedMessage::KnownStatus(std::uint32_t signer, const CertificateContext& with) const {
    for (const auto& checked : checked_) {
        if (checked.signer == signer && checked.with == with) return checked.status;
    }
    return std::nullopt;
}

// Without digests a later answer may differ: the data may still come, or the file can be read again.
void DecodedMessage::RememberStatus(std::uint32_t signer, const CertificateContext& with, ErrorCode status) {
    if (digested_ && checked_.size() < kMostMessageSigners) checked_.push_back({signer, with.FromStore({}), status});
}

const std::vector<ByteView>& DecodedMessage::Certificates() {
    if (!certificates_) certificates_ = ElementsIn(parts_.certificates);
    return *certificates_;
}

const std::vector<ByteView>& DecodedMessage::Crls() {
    ReadRevocationInfos();
    return *crls_;
}

const std::vector<ByteView>& DecodedMessage::OtherRevocationInfos() {
    ReadRevocationInfos();
    return otherInfos_;
}

void DecodedMessage::ReadRevocationInfos() {
    if (crls_) return;
    if (parts_.crls) crlBytes_ = cms::ReadContents(*source_, *parts_.crls).value_or(Bytes{});
    crls_ = ElementsIn(crlBytes_);
    otherInfos_ = ElementsIn(crlBytes_, tag::ContextConstructed(1));
}

DecodedMessage* ReadMessage(const CryptMsg& message) {
    if (!message) return FailWith<DecodedMessage*>(ERROR_INVALID_HANDLE);
    DecodedMessage* decoded = message.Backend()->Decoded();
    return decoded != nullptr ? decoded : FailWith<DecodedMessage*>(CRYPT_E_MSG_ERROR);
}

DecodedMessage* ReadSignedMessage(const CryptMsg& message) {
    DecodedMessage* decoded = ReadMessage(message);
    if (decoded == nullptr || decoded->Type() == CMSG_SIGNED) return decoded;
    return FailWith<DecodedMessage*>(CRYPT_E_UNEXPECTED_MSG_TYPE);
}

}  // namespace platform::posix

#include <algorithm>

#include "platform/Hash.h"
#include "platform/posix/Ber.h"
#include "platform/posix/Message.h"

namespace platform {
namespace {

using posix::DecodedMessage;
using posix::FailWith;

CRYPT_ALGORITHM_IDENTIFIER AlgorithmOf(const AlgorithmIdentifier& algorithm) {
    return {algorithm.oid, algorithm.parameters};
}

CRYPT_ATTRIBUTES AttributesOf(const cms::Attributes& attributes) {
    CRYPT_ATTRIBUTES result;
    for (const auto& attribute : attributes) {
        auto& copy = result.emplace_back(CRYPT_ATTRIBUTE{attribute.oid, {}});
        for (const auto& value : attribute.values)
            copy.rgValue.push_back(CopyOf(value.encoded));
    }
    return result;
}

std::optional<Bytes> ElementAt(const std::vector<ByteView>& elements, std::uint32_t index) {
    if (index < elements.size()) return CopyOf(elements[index]);
    return FailWith<std::optional<Bytes>>(CRYPT_E_INVALID_INDEX);
}

// What a writer of pieces writes, as one.
template <typename Write>
std::optional<Bytes> InMemory(Write write) {
    Bytes bytes;
    bool fits = true;
    const bool written = write([&](ByteView piece) {
        fits = piece.size() <= posix::kMostMessageBytes - bytes.size();
        if (fits) bytes.insert(bytes.end(), piece.begin(), piece.end());
        return fits;
    });
    if (!fits) SetLastError(ERROR_FILE_INVALID);
    return written ? std::optional(std::move(bytes)) : std::nullopt;
}

std::optional<Bytes> ContentOf(const CryptMsg& message) {
    DecodedMessage* decoded = posix::ReadMessage(message);
    if (decoded == nullptr) return std::nullopt;
    if (decoded->Type() != CMSG_DATA && decoded->Type() != CMSG_SIGNED) {
        return FailWith<std::optional<Bytes>>(CRYPT_E_UNEXPECTED_MSG_TYPE);
    }
    const cms::ContentPlace* place = decoded->Content();
    if (place == nullptr) return Bytes{};
    if (place->octets > posix::kMostMessageBytes) return FailWith<std::optional<Bytes>>(ERROR_FILE_INVALID);
    return InMemory([&](const MessageSink& sink) { return decoded->ReadContent(sink); });
}

std::optional<Bytes> ComputedHash(const CryptMsg& message, std::uint32_t index) {
    const cms::SignerInfo* signer = posix::SignerOf(message, index);
    if (signer == nullptr) return std::nullopt;
    DecodedMessage& decoded = *message.Backend()->Decoded();
    if (!decoded.Digest()) return std::nullopt;
    if (!decoded.HasDigests()) return FailWith<std::optional<Bytes>>(CRYPT_E_MSG_ERROR);
    const auto algorithm = HashFromOid(signer->digestAlgorithm.oid);
    Bytes digest = algorithm ? decoded.Digests().Of(*algorithm) : Bytes{};
    if (digest.empty()) return FailWith<std::optional<Bytes>>(NTE_BAD_ALGID);
    return digest;
}

}  // namespace

std::optional<std::uint32_t> CryptMsgGetParam(const CryptMsg& message, CMSG_PARAM<std::uint32_t> parameter,
                                              std::uint32_t) {
    if (parameter.number == CMSG_TYPE_PARAM.number) {
        const DecodedMessage* decoded = posix::ReadMessage(message);
        return decoded != nullptr ? std::optional(decoded->Type()) : std::nullopt;
    }
    DecodedMessage* decoded = posix::ReadSignedMessage(message);
    if (decoded == nullptr) return std::nullopt;
    switch (parameter.number) {
        case CMSG_SIGNER_COUNT_PARAM.number:
            return static_cast<std::uint32_t>(decoded->Signers().size());
        case CMSG_CERT_COUNT_PARAM.number:
            return static_cast<std::uint32_t>(decoded->Certificates().size());
        case CMSG_CRL_COUNT_PARAM.number:
            return static_cast<std::uint32_t>(decoded->Crls().size());
        default:
            return FailWith<std::optional<std::uint32_t>>(ERROR_INVALID_PARAMETER);
    }
}

std::optional<Bytes> CryptMsgGetParam(const CryptMsg& message, CMSG_PARAM<Bytes> parameter, std::uint32_t index) {
    if (parameter.number == CMSG_CONTENT_PARAM.number) return ContentOf(message);
    if (parameter.number == CMSG_COMPUTED_HASH_PARAM.number) return ComputedHash(message, index);
    if (parameter.number == CMSG_ENCODED_MESSAGE.number) {
        return InMemory([&](const MessageSink& sink) { return CryptMsgWriteEncodedMessage(message, sink); });
    }
    DecodedMessage* decoded = posix::ReadSignedMessage(message);
    if (decoded == nullptr) return std::nullopt;
    if (parameter.number == CMSG_CERT_PARAM.number) return ElementAt(decoded->Certificates(), index);
    if (parameter.number == CMSG_CRL_PARAM.number) return ElementAt(decoded->Crls(), index);
    return FailWith<std::optional<Bytes>>(ERROR_INVALID_PARAMETER);
}

std::optional<std::string> CryptMsgGetParam(const CryptMsg& message, CMSG_PARAM<std::string>, std::uint32_t) {
    const DecodedMessage* decoded = posix::ReadSignedMessage(message);
    return decoded != nullptr ? std::optional(decoded->Parts().contentType) : std::nullopt;
}

std::optional<CERT_ID> CryptMsgGetParam(const CryptMsg& message, CMSG_PARAM<CERT_ID>, std::uint32_t index) {
    const cms::SignerInfo* signer = posix::SignerOf(message, index);
    return signer != nullptr ? std::optional(posix::CertIdOf(*signer)) : std::nullopt;
}

std::optional<CRYPT_ALGORITHM_IDENTIFIER> CryptMsgGetParam(const CryptMsg& message,
                                                           CMSG_PARAM<CRYPT_ALGORITHM_IDENTIFIER>,
                                                           std::uint32_t index) {
    const cms::SignerInfo* signer = posix::SignerOf(message, index);
    return signer != nullptr ? std::optional(AlgorithmOf(signer->digestAlgorithm)) : std::nullopt;
}

std::optional<CRYPT_ATTRIBUTES> CryptMsgGetParam(const CryptMsg& message, CMSG_PARAM<CRYPT_ATTRIBUTES> parameter,
                                                 std::uint32_t index) {
    const cms::SignerInfo* signer = posix::SignerOf(message, index);
    if (signer == nullptr) return std::nullopt;
    const bool isSigned = parameter.number == CMSG_SIGNER_AUTH_ATTR_PARAM.number;
    return AttributesOf(isSigned ? signer->signedAttributes : signer->unsignedAttributes);
}

std::optional<CMSG_CMS_SIGNER_INFO> CryptMsgGetParam(const CryptMsg& message, CMSG_PARAM<CMSG_CMS_SIGNER_INFO>,
                                                     std::uint32_t index) {
    const cms::SignerInfo* signer = posix::SignerOf(message, index);
    if (signer == nullptr) return std::nullopt;
    CMSG_CMS_SIGNER_INFO info;
    info.dwVersion = signer->version;
    info.SignerId = posix::CertIdOf(*signer);
    info.HashAlgorithm = AlgorithmOf(signer->digestAlgorithm);
    info.HashEncryptionAlgorithm = AlgorithmOf(signer->signatureAlgorithm);
    info.EncryptedHash = signer->signature;
    info.AuthAttrs = AttributesOf(signer->signedAttributes);
    info.UnauthAttrs = AttributesOf(signer->unsignedAttributes);
    info.Encoded = CopyOf(signer->encoded);
    return info;
}

std::optional<std::uint64_t> CryptMsgGetContentSize(const CryptMsg& message) {
    const DecodedMessage* decoded = posix::ReadMessage(message);
    if (decoded == nullptr) return std::nullopt;
    if (decoded->Content() != nullptr) return decoded->Content()->octets;
    return FailWith<std::optional<std::uint64_t>>(ERROR_SUCCESS);
}

bool CryptMsgReadContent(const CryptMsg& message, const MessageSink& sink) {
    DecodedMessage* decoded = posix::ReadMessage(message);
    return decoded != nullptr && decoded->ReadContent(sink);
}

const CRYPT_ATTRIBUTE* CertFindAttribute(std::string_view oid, const CRYPT_ATTRIBUTES& attributes) {
    const auto found = std::ranges::find(attributes, oid, &CRYPT_ATTRIBUTE::pszObjId);
    return found != attributes.end() ? &*found : nullptr;
}

std::optional<FILETIME> DecodeChoiceOfTime(ByteView der) {
    posix::BerReader reader(der);
    const auto time = posix::ReadTime(reader);
    if (!time || reader.AtEnd()) return time;
    return FailWith<std::optional<FILETIME>>(CRYPT_E_BAD_ENCODE);
}

}  // namespace platform

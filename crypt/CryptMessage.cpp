#include "crypt/CryptMessage.h"

#include <utility>

namespace tessaly {
namespace {

using platform::Bytes;

constexpr std::uint32_t kEncoding = platform::X509_ASN_ENCODING | platform::PKCS_7_ASN_ENCODING;

constexpr std::string_view kSigningTime = "1.2.840.113549.1.9.5";
constexpr std::string_view kSigningCertificateV2 = "1.2.840.113549.1.9.16.2.47";
constexpr std::string_view kTimestampToken = "1.2.840.113549.1.9.16.2.14";
// Under which signers keep their comment.
constexpr std::string_view kComment = "1.3.6.1.4.1.23021";
constexpr std::string_view kOtherComment = "1.3.6.1.4.1.4448.0.3.0";

int HexDigit(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;
}

// The number that one or two digits say; what follows something that is no digit does not count.
char16_t HexValue(std::string_view digits) {
    int value = 0;
    for (const char c : digits) {
        const int digit = HexDigit(c);
        if (digit < 0) break;
        value = value * 16 + digit;
    }
    return static_cast<char16_t>(value);
}

}  // namespace

bool CryptMessage::Attach(platform::CryptMsg handle) {
    store.store = {};
    message = std::move(handle);
    return static_cast<bool>(message);
}

bool CryptMessage::Update(platform::ByteView data, bool final) {
    return Kept(platform::CryptMsgUpdate(message, data, final));
}

bool CryptMessage::Update(std::shared_ptr<platform::ByteSource> source) {
    return Kept(platform::CryptMsgUpdate(message, std::move(source)));
}

bool CryptMessageEncode::OpenToEncode(std::uint32_t flags, std::uint32_t type,
                                      const platform::CMSG_SIGNED_ENCODE_INFO& info,
                                      std::string_view innerContentType) {
    return Attach(Kept(platform::CryptMsgOpenToEncode(kEncoding, flags, type, info, innerContentType)));
}

bool CryptMessageDecode::OpenToDecode(std::uint32_t flags) {
    return Attach(Kept(platform::CryptMsgOpenToDecode(kEncoding, flags)));
}

Bytes CryptMessageDecode::GetContent() {
    auto content = GetParam(platform::CMSG_CONTENT_PARAM);
    if (!content) return {};
    if (content->empty()) lastError = platform::CRYPT_E_NOT_FOUND;
    return std::move(*content);
}

bool CryptMessageDecode::HasContent() {
    const auto size = platform::CryptMsgGetContentSize(message);
    if (size && *size > 0) return true;
    lastError = size || platform::GetLastError() == platform::ERROR_SUCCESS ? platform::CRYPT_E_NOT_FOUND
                                                                            : platform::GetLastError();
    return false;
}

std::uint32_t CryptMessageDecode::GetSignerCount() {
    const auto count = GetParam(platform::CMSG_SIGNER_COUNT_PARAM);
    if (count == 0U) lastError = platform::CRYPT_E_NO_SIGNER;
    return count.value_or(0);
}

std::u16string CryptMessageDecode::GetDigest() {
    return HexText(GetParam(platform::CMSG_COMPUTED_HASH_PARAM).value_or(Bytes{}));
}

std::unique_ptr<CryptCertificate> CryptMessageDecode::GetSignerCertificate(std::uint32_t index) {
    if (GetSignerCount() == 0) return nullptr;
    if (!store.store) store = CryptStore(Kept(platform::CertOpenMessageStore(message)));
    const auto id = GetParam(platform::CMSG_SIGNER_CERT_INFO_PARAM, index);
    if (!id) return nullptr;
    // Where there is nothing to choose from, who signed can be told before the content is read.
    const auto candidates = platform::CertFindSubjectCertificates(store.store, *id);
    if (candidates.size() == 1) return std::make_unique<CryptCertificate>(candidates.front(), true);
    const auto signer = Kept(platform::CryptMsgGetAndVerifySigner(message, index, {store.store}));
    if (!signer) return nullptr;
    if (!signer->certificate) {
        lastError = signer->status;
        return nullptr;
    }
    return std::make_unique<CryptCertificate>(signer->certificate, true);
}

bool CryptMessageDecode::GetHashAlgorithm(std::uint32_t index, CryptOID& algorithm) {
    const auto identifier = GetParam(platform::CMSG_SIGNER_HASH_ALGORITHM_PARAM, index);
    if (!identifier) return false;
    if (algorithm.Find(identifier->pszObjId)) return true;
    lastError = algorithm.lastError;
    return false;
}

std::int64_t CryptMessageDecode::GetSigningTime(std::uint32_t index) {
    for (const auto& attribute : SignedAttributes(index)) {
        if (attribute.pszObjId != kSigningTime || attribute.rgValue.empty()) continue;
        const auto moment = platform::DecodeChoiceOfTime(attribute.rgValue.front());
        if (moment) return platform::UnixFromFileTime(*moment);
        lastError = platform::GetLastError();
    }
    return 0;
}

bool CryptMessageDecode::IsCades(std::uint32_t index) {
    return platform::CertFindAttribute(kSigningCertificateV2, SignedAttributes(index)) != nullptr;
}

bool CryptMessageDecode::HasTimestamp(std::uint32_t index) {
    const auto isSigned = SignedAttributes(index);
    if (isSigned.empty()) return false;
    if (platform::CertFindAttribute(kTimestampToken, isSigned) != nullptr) return true;
    const auto others = GetParam(platform::CMSG_SIGNER_UNAUTH_ATTR_PARAM, index);
    return others && platform::CertFindAttribute(kTimestampToken, *others) != nullptr;
}

std::u16string CryptMessageDecode::GetComment(std::uint32_t index) {
    for (const auto& attribute : SignedAttributes(index)) {
        const bool isComment = attribute.pszObjId == kComment || attribute.pszObjId == kOtherComment;
        if (isComment && !attribute.rgValue.empty()) return DecodeComment(attribute);
    }
    return {};
}

platform::CRYPT_ATTRIBUTES CryptMessageDecode::SignedAttributes(std::uint32_t index) {
    return GetParam(platform::CMSG_SIGNER_AUTH_ATTR_PARAM, index).value_or(platform::CRYPT_ATTRIBUTES{});
}

// The hexadecimal text was written as wide characters without a DER header, so that each of them reads as an element
// of its own with no contents: "6" is 36 00.
std::u16string DecodeComment(const platform::CRYPT_ATTRIBUTE& attribute) {
    std::string digits;
    for (const auto& value : attribute.rgValue) {
        const std::string_view text = platform::AsText(value);
        digits += text.substr(0, text.find('\0'));
    }
    std::u16string comment;
    for (std::size_t at = 0; at < digits.size(); at += 2)
        comment += HexValue(std::string_view(digits).substr(at, 2));
    return comment;
}

}  // namespace tessaly

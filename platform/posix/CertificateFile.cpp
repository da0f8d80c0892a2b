#include "platform/posix/CertificateFile.h"

#include <algorithm>
#include <array>
#include <optional>

#include "platform/Text.h"
#include "platform/posix/Ber.h"

namespace platform::posix {
namespace {

constexpr std::string_view kSignedData = "1.2.840.113549.1.7.2";
constexpr std::string_view kBegin = "-----BEGIN ", kEnd = "-----END ", kDashes = "-----";
constexpr std::string_view kAlphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

constexpr auto kDigitOf = [] {
    std::array<std::int8_t, 256> digits{};
    digits.fill(-1);
    for (std::size_t i = 0; i < kAlphabet.size(); ++i)
        digits[static_cast<unsigned char>(kAlphabet[i])] = static_cast<std::int8_t>(i);
    return digits;
}();

bool IsSpace(char c) {
    return c == ' ' || c == '\t' || c == '\r' || c == '\n' || c == '\v' || c == '\f';
}

// Base64 with blanks anywhere; nothing if it holds another character or stops within a byte.
std::optional<Bytes> DecodeBase64(std::string_view text) {
    Bytes bytes;
    bytes.reserve(text.size() / 4 * 3);
    std::uint32_t group = 0;
    int digits = 0, padding = 0;
    for (const char c : text) {
        if (IsSpace(c)) continue;
        const int digit = kDigitOf[static_cast<unsigned char>(c)];
        if (c == '=') {
            ++padding;
            continue;
        }
        if (digit < 0 || padding > 0) return std::nullopt;
        group = group << 6 | static_cast<std::uint32_t>(digit);
        if (++digits % 4 != 0) continue;
        for (const int shift : {16, 8, 0})
            bytes.push_back(static_cast<std::uint8_t>(group >> shift));
        group = 0;
    }
    const int tail = digits % 4;
    if (tail == 1 || padding > 2) return std::nullopt;
    if (tail == 2) bytes.push_back(static_cast<std::uint8_t>(group >> 4));
    if (tail == 3) {
        bytes.push_back(static_cast<std::uint8_t>(group >> 10));
        bytes.push_back(static_cast<std::uint8_t>(group >> 2));
    }
    return bytes;
}

// The `certificates` [0] and `crls` [1] of a SignedData, in their order; other kinds of certificate are passed over.
bool ReadSignedData(ByteView der, CertificateFile& file) {
    const auto contentInfo = ReadSingleElement(der, kBerSequence);
    if (!contentInfo) return false;
    BerReader reader(contentInfo->content);
    const auto type = ReadOid(reader);
    if (!type || *type != kSignedData) return false;
    const auto tagged = reader.Next(BerContext(0));
    const auto signedData = tagged ? ReadSingleElement(tagged->content, kBerSequence) : std::nullopt;
    if (!signedData) return false;
    for (BerReader fields(signedData->content); !fields.AtEnd();) {
        const auto field = fields.Next();
        if (!field) return false;
        const bool certificates = field->identifier == BerContext(0);
        if (!certificates && field->identifier != BerContext(1)) continue;
        for (BerReader members(field->content); !members.AtEnd();) {
            const auto member = members.Next();
            if (!member) return false;
            if (member->identifier != kBerSequence) continue;
            if (certificates) {
                file.certificates.push_back(CertCreateCertificateContext(member->whole));
                if (!file.certificates.back()) file.certificates.pop_back(), ++file.damaged;
            } else if (auto crl = CertCreateCRLContext(member->whole)) {
                file.crls.push_back(std::move(crl));
            } else {
                ++file.damaged;
            }
        }
    }
    return true;
}

bool ReadBinary(ByteView der, CertificateFile& file) {
    if (auto certificate = CertCreateCertificateContext(der)) {
        file.certificates.push_back(std::move(certificate));
        return true;
    }
    const ErrorCode reason = GetLastError();
    if (auto crl = CertCreateCRLContext(der)) {
        file.crls.push_back(std::move(crl));
        return true;
    }
    if (ReadSignedData(der, file)) return true;
    SetLastError(reason);
    return false;
}

void ReadBlock(std::string_view label, std::string_view body, CertificateFile& file) {
    const bool trusted = label == "TRUSTED CERTIFICATE";
    const bool known = trusted || label == "CERTIFICATE" || label == "X509 CERTIFICATE" || label == "X509 CRL" ||
                       label == "PKCS7" || label == "CMS" || label == "PKCS #7 SIGNED DATA";
    if (!known) return;
    const auto bytes = DecodeBase64(body);
    ByteView der = bytes ? ByteView(*bytes) : ByteView();
    if (trusted) {  // what the user of that format trusts it for stands behind the certificate
        BerReader reader(der);
        const auto certificate = reader.Next(kBerSequence);
        if (certificate) der = certificate->whole;
    }
    if (!ReadBinary(der, file)) ++file.damaged;
}

// The label of the line at the start of `text` behind `mark`: "CERTIFICATE" of "-----BEGIN CERTIFICATE-----".
std::optional<std::string_view> LabelOf(std::string_view text, std::string_view mark) {
    text.remove_prefix(mark.size());
    const auto end = text.find(kDashes);
    if (end == std::string_view::npos || end > 64) return std::nullopt;
    return text.substr(0, end);
}

void ReadPem(std::string_view text, CertificateFile& file) {
    for (auto begin = text.find(kBegin); begin != std::string_view::npos; begin = text.find(kBegin)) {
        text.remove_prefix(begin);
        const auto label = LabelOf(text, kBegin);
        if (!label) {
            text.remove_prefix(kBegin.size());
            continue;
        }
        text.remove_prefix(kBegin.size() + label->size() + kDashes.size());
        const auto end = text.find(kEnd);
        if (end == std::string_view::npos || text.find(kBegin) < end) {
            ++file.damaged;  // the block is cut short; the next one may be whole
            continue;
        }
        ReadBlock(*label, text.substr(0, end), file);
        text.remove_prefix(end + kEnd.size());
    }
}

// UTF-16 with a byte order mark, as some editors save PEM.
std::optional<std::string> FromUtf16(ByteView bytes) {
    if (bytes.size() < 2) return std::nullopt;
    const bool little = bytes[0] == 0xFF && bytes[1] == 0xFE, big = bytes[0] == 0xFE && bytes[1] == 0xFF;
    if (!little && !big) return std::nullopt;
    std::string text;
    for (std::size_t i = 2; i + 1 < bytes.size(); i += 2) {
        const std::uint8_t low = bytes[little ? i : i + 1], high = bytes[little ? i + 1 : i];
        text += high == 0 ? static_cast<char>(low) : '?';
    }
    return text;
}

}  // namespace

CertificateFile ReadCertificateFile(ByteView bytes) {
    CertificateFile file;
    if (bytes.empty()) {
        SetLastError(CRYPT_E_ASN1_EOD);
        return file;
    }
    if (bytes[0] == kBerSequence && ReadBinary(bytes, file)) return file;
    const auto wide = FromUtf16(bytes);
    std::string_view text = wide ? *wide : AsText(bytes);
    if (text.starts_with("\xEF\xBB\xBF")) text.remove_prefix(3);
    if (text.find(kBegin) != std::string_view::npos) {
        ReadPem(text, file);
        if (file.Count() == 0) SetLastError(CRYPT_E_BAD_ENCODE);
        return file;
    }
    if (bytes[0] == kBerSequence && !DecodeBase64(text))
        return file;  // the last error tells what is wrong with the DER
    const auto decoded = DecodeBase64(text);
    if (!decoded || !ReadBinary(*decoded, file)) SetLastError(CRYPT_E_BAD_ENCODE);
    return file;
}

std::string WritePem(std::string_view label, ByteView der) {
    std::string body;
    for (std::size_t i = 0; i < der.size(); i += 3) {
        const std::size_t count = std::min<std::size_t>(3, der.size() - i);
        std::uint32_t group = 0;
        for (std::size_t j = 0; j < 3; ++j)
            group = group << 8 | (j < count ? der[i + j] : 0U);
        for (std::size_t j = 0; j < 4; ++j)
            body += j <= count ? kAlphabet[group >> (18 - 6 * j) & 63] : '=';
        if (i % 48 == 45) body += '\n';
    }
    if (!body.empty() && body.back() != '\n') body += '\n';
    const std::string name(label);
    return "-----BEGIN " + name + "-----\n" + body + "-----END " + name + "-----\n";
}

}  // namespace platform::posix

#include "platform/posix/CertificateFile.h"

#include <algorithm>
#include <array>
#include <optional>

#include "platform/Crls.h"
#include "platform/Text.h"
#include "platform/posix/Ber.h"
#include "platform/posix/OpenSsl.h"

namespace platform::posix {
namespace {

constexpr std::string_view kSignedData = "1.2.840.113549.1.7.2";
constexpr std::string_view kBegin = "-----BEGIN ", kEnd = "-----END ", kDashes = "-----";
constexpr std::string_view kAlphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

constexpr auto kDigitOf = [] {
    std::array<int, 256> digits{};
    digits.fill(-1);
    for (std::size_t i = 0; i < kAlphabet.size(); ++i)
        digits[static_cast<unsigned char>(kAlphabet[i])] = static_cast<int>(i);
    return digits;
}();

bool IsSpace(char c) {
    return c == ' ' || c == '\t' || c == '\r' || c == '\n' || c == '\v' || c == '\f';
}

// Decodes the groups of four digits with nothing between them, which make up the lines of PEM; answers the text behind.
std::string_view DecodeGroups(std::string_view text, std::uint8_t*& out) {
    const auto digit = [&](std::size_t at) { return kDigitOf[static_cast<unsigned char>(text[at])]; };
    std::size_t at = 0;
    for (; text.size() - at >= 4; at += 4) {
        const int group = digit(at) << 18 | digit(at + 1) << 12 | digit(at + 2) << 6 | digit(at + 3);
        if (group < 0) break;
        for (const int shift : {16, 8, 0})
            *out++ = static_cast<std::uint8_t>(group >> shift);
    }
    return text.substr(at);
}

// Base64 with blanks anywhere; nothing if it holds another character or stops within a byte.
std::optional<Bytes> DecodeBase64(std::string_view text) {
    Bytes bytes(text.size() / 4 * 3 + 3);
    std::uint8_t* out = bytes.data();
    std::uint32_t group = 0;
    int digits = 0, padding = 0;
    while (!text.empty()) {
        if (digits % 4 == 0 && padding == 0) text = DecodeGroups(text, out);
        if (text.empty()) break;
        const char c = text.front();
        text.remove_prefix(1);
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
            *out++ = static_cast<std::uint8_t>(group >> shift);
        group = 0;
    }
    const int tail = digits % 4;
    if (tail == 1 || padding > 2) return std::nullopt;
    if (tail == 2) *out++ = static_cast<std::uint8_t>(group >> 4);
    if (tail == 3) {
        *out++ = static_cast<std::uint8_t>(group >> 10);
        *out++ = static_cast<std::uint8_t>(group >> 2);
    }
    bytes.resize(static_cast<std::size_t>(out - bytes.data()));
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

// One block of a PEM text: label, Base64 body, and where it stands from the first dash to the end of its last line.
struct PemBlock {
    std::string_view label, body;
    std::size_t begin = 0, end = 0;
};

// Walks the blocks of a PEM text. A block that is cut short is counted and passed over; the next one may be whole.
class PemWalk {
  public:
    explicit PemWalk(std::string_view text) : text_(text) {}
    std::optional<PemBlock> Next() {
        for (;;) {
            const auto begin = text_.find(kBegin, position_);
            if (begin == std::string_view::npos) return std::nullopt;
            position_ = begin + kBegin.size();
            const auto label = LabelAt(position_);
            if (!label) continue;
            const auto body = position_ + label->size() + kDashes.size();
            const auto end = text_.find(kEnd, body);
            const auto next = text_.find(kBegin, body);
            if (end == std::string_view::npos || next < end) {
                ++cut_;
                continue;
            }
            const auto line = text_.find('\n', end);
            position_ = line == std::string_view::npos ? text_.size() : line + 1;
            return PemBlock{*label, text_.substr(body, end - body), begin, position_};
        }
    }
    [[nodiscard]] std::size_t Cut() const { return cut_; }

  private:
    [[nodiscard]] std::optional<std::string_view> LabelAt(std::size_t position) const {
        const auto end = text_.find(kDashes, position);
        if (end == std::string_view::npos || end - position > 64) return std::nullopt;
        return text_.substr(position, end - position);
    }
    std::string_view text_;
    std::size_t position_ = 0;
    std::size_t cut_ = 0;
};

void ReadPem(std::string_view text, CertificateFile& file) {
    PemWalk walk(text);
    while (const auto block = walk.Next())
        ReadBlock(block->label, block->body, file);
    file.damaged += walk.Cut();
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

std::optional<std::string> WithoutCertificate(ByteView bytes, const CertificateContext& certificate) {
    const auto wide = FromUtf16(bytes);
    const std::string_view text = wide ? *wide : AsText(bytes);
    std::string rest;
    bool found = false, blocks = false;
    const auto write = [&](const CertificateFile& file) {
        for (const auto& other : file.certificates) {
            const bool same = other == certificate;
            if (!same) rest += WritePem("CERTIFICATE", other.Encoded());
            found = found || same;
            blocks = blocks || !same;
        }
        for (const auto& crl : file.crls)
            rest += WritePem("X509 CRL", crl.Encoded());
        blocks = blocks || !file.crls.empty();
    };
    CertificateFile binary;
    if (!bytes.empty() && bytes[0] == kBerSequence && ReadBinary(bytes, binary)) {
        write(binary);
    } else if (text.find(kBegin) == std::string_view::npos) {
        write(ReadCertificateFile(bytes));
    } else {
        std::size_t copied = 0;
        PemWalk walk(text);
        while (const auto block = walk.Next()) {
            CertificateFile content;
            ReadBlock(block->label, block->body, content);
            if (std::ranges::find(content.certificates, certificate) == content.certificates.end()) {
                blocks = true;
                continue;
            }
            rest += text.substr(copied, block->begin - copied);
            copied = block->end;
            write(content);
        }
        rest += text.substr(copied);
    }
    if (!found) return std::nullopt;
    return blocks ? rest : std::string();
}

std::string WritePem(std::string_view label, ByteView der) {
    constexpr std::size_t kBytesInLine = 48;
    std::string body;
    for (std::size_t i = 0; i < der.size(); i += kBytesInLine) {
        const ByteView part = der.subspan(i, std::min(kBytesInLine, der.size() - i));
        unsigned char line[kBytesInLine / 3 * 4 + 1];
        EVP_EncodeBlock(line, part.data(), static_cast<int>(part.size()));
        body.append(reinterpret_cast<const char*>(line)) += '\n';
    }
    const std::string name(label);
    return "-----BEGIN " + name + "-----\n" + body + "-----END " + name + "-----\n";
}

}  // namespace platform::posix

std::optional<platform::Bytes> platform::CryptStringToBinaryA(std::string_view text, std::uint32_t form) {
    if (form == CRYPT_STRING_BASE64X509CRLHEADER) {
        posix::PemWalk walk(text);
        while (const auto block = walk.Next()) {
            if (block->label != "X509 CRL") continue;
            if (auto bytes = posix::DecodeBase64(block->body)) return bytes;
            break;
        }
    }
    SetLastError(form == CRYPT_STRING_BASE64X509CRLHEADER ? ERROR_INVALID_DATA : ERROR_INVALID_PARAMETER);
    return std::nullopt;
}

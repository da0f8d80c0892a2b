// CRLs in DER or PEM: any bytes are a list or refused, and every entry with a serial number that was looked up and
// found has a date and extensions that decode.

#include <cstdlib>

#include "platform/Crls.h"
#include "platform/Error.h"

namespace {

void Require(bool holds) {
    if (!holds) std::abort();
}

// The least that decodes: serial number 1, empty names and key.
const platform::CertificateContext& Certificate() {
    static constexpr std::string_view kDer(
        "\x30\x3D\x30\x33\xA0\x03\x02\x01\x02\x02\x01\x01\x30\x03\x06\x01\x2A\x30\x00\x30\x1E"
        "\x17\x0D"
        "230101000000Z"
        "\x17\x0D"
        "330101000000Z"
        "\x30\x00\x30\x00\x30\x03\x06\x01\x2A\x03\x01\x00",
        63);
    static const auto context =
        platform::CertCreateCertificateContext({reinterpret_cast<const std::uint8_t*>(kDer.data()), kDer.size()});
    Require(static_cast<bool>(context));
    return context;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const platform::ByteView bytes(data, size);
    const auto decoded =
        platform::CryptStringToBinaryA(platform::AsText(bytes), platform::CRYPT_STRING_BASE64X509CRLHEADER);
    const auto crl = platform::CertCreateCRLContext(decoded ? platform::ByteView(*decoded) : bytes);
    if (!crl) return 0;
    platform::SetLastError(0);
    const auto info = platform::CrlInfoOf(crl);
    if (!info) {
        Require(platform::GetLastError() != 0);
        return 0;
    }
    Require(info->Entries.size() <= crl.Encoded().size());
    if (info->NextUpdate && *info->NextUpdate >= info->ThisUpdate)
        Require(platform::CertVerifyCRLTimeValidity(info->ThisUpdate, *info) == 0);
    std::optional<platform::CRL_ENTRY> entry;
    platform::SetLastError(0);
    if (!platform::CertFindCertificateInCRL(Certificate(), *info, entry))
        Require(!entry && platform::GetLastError() != 0);
    return 0;
}

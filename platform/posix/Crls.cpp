#include "platform/Crls.h"

#include <algorithm>

#include "platform/posix/Ber.h"
#include "platform/posix/Native.h"

namespace platform {
namespace {

using posix::BerReader;

std::nullopt_t BadEncoding() {
    SetLastError(CRYPT_E_BAD_ENCODE);
    return std::nullopt;
}

bool IsTime(const BerReader& reader) {
    return reader.NextIs(posix::kBerUtcTime) || reader.NextIs(posix::kBerGeneralizedTime);
}

// Some authorities write a serial number with more zero octets in front than the encoding wants.
ByteView WithoutLeadingZeros(ByteView number) {
    while (number.size() > 1 && number.front() == 0)
        number = number.subspan(1);
    return number;
}

// The serial number in the form it is stored in.
Bytes SerialOf(const CertificateContext& certificate) {
    const Bytes& stored = certificate.Info().SerialNumber;
    const Bytes serial(stored.rbegin(), stored.rend());
    return CopyOf(WithoutLeadingZeros(serial));
}

// What stands behind an entry's serial number.
std::optional<CRL_ENTRY> ReadEntry(BerReader reader) {
    CRL_ENTRY entry;
    const auto date = posix::ReadTime(reader);
    if (!date) return std::nullopt;
    entry.RevocationDate = *date;
    if (reader.AtEnd()) return entry;
    const auto extensions = reader.Next(posix::kBerSequence);
    if (!extensions || !posix::DecodeExtensions(extensions->whole, entry.rgExtension)) return std::nullopt;
    if (!reader.AtEnd()) return BadEncoding();
    return entry;
}

}  // namespace

// TBSCertList (RFC 5280, 5.1); that there is an issuer was seen when the context was made.
std::optional<CRL_INFO> CrlInfoOf(const CrlContext& crl) {
    const auto list = posix::ReadSingleElement(crl.Encoded(), posix::kBerSequence);
    if (!list) return std::nullopt;
    BerReader outer(list->content);
    const auto toBeSigned = outer.Next(posix::kBerSequence);
    if (!toBeSigned) return std::nullopt;
    BerReader reader(toBeSigned->content);
    if (reader.NextIs(posix::kBerInteger)) (void)reader.Next();
    if (!reader.Next(posix::kBerSequence) || !reader.Next(posix::kBerSequence)) return std::nullopt;

    CRL_INFO info;
    const auto thisUpdate = posix::ReadTime(reader);
    if (!thisUpdate) return std::nullopt;
    info.ThisUpdate = *thisUpdate;
    if (IsTime(reader)) {
        info.NextUpdate = posix::ReadTime(reader);
        if (!info.NextUpdate) return std::nullopt;
    }
    if (reader.NextIs(posix::kBerSequence)) {
        const auto entries = reader.Next();
        if (!entries) return std::nullopt;
        info.Entries = entries->content;
    }
    if (reader.NextIs(posix::BerContext(0)) && !reader.Next()) return std::nullopt;
    if (!reader.AtEnd()) return BadEncoding();
    return info;
}

int CertVerifyCRLTimeValidity(FILETIME moment, const CRL_INFO& info) {
    if (moment < info.ThisUpdate) return -1;
    return info.NextUpdate && moment > *info.NextUpdate ? 1 : 0;
}

bool CertFindCertificateInCRL(const CertificateContext& certificate, const CRL_INFO& info,
                              std::optional<CRL_ENTRY>& entry) {
    entry.reset();
    const Bytes wanted = SerialOf(certificate);
    for (BerReader entries(info.Entries); !entries.AtEnd();) {
        const auto element = entries.Next(posix::kBerSequence);
        if (!element) return false;
        BerReader reader(element->content);
        const auto serial = reader.Next(posix::kBerInteger);
        if (!serial) return false;
        if (!std::ranges::equal(WithoutLeadingZeros(serial->content), wanted)) continue;
        entry = ReadEntry(reader);
        return entry.has_value();
    }
    return true;
}

}  // namespace platform

#include "src/certificates/Record.h"

#include <algorithm>
#include <exception>

#include "crypt/CryptCertificate.h"
#include "platform/Text.h"
#include "toolkit/CkDateTimeW.h"
#include "units/Helpers.h"

namespace certificates {
namespace {

using tessaly::CryptCertificate;

// A zero inside a name must not hide what stands behind it.
void Write(toolkit::CkJsonObjectW& record, const char16_t* key, std::u16string text) {
    std::ranges::replace(text, u'\0', u'\uFFFD');
    record.UpdateString(key, text.c_str());
}

std::u16string SubjectText(const platform::CertificateContext& context) {
    return platform::CertNameToStrW(context.Info().Subject, platform::CERT_X500_NAME_STR |
                                                                platform::CERT_NAME_STR_REVERSE_FLAG |
                                                                platform::CERT_NAME_STR_CRLF_FLAG);
}

std::u16string SignatureAlgorithmText(const platform::CertificateContext& context) {
    const auto& oid = context.Info().SignatureAlgorithm;
    const auto* entry =
        platform::CryptFindOIDInfo(platform::CRYPT_OID_INFO_OID_KEY, oid, platform::CRYPT_SIGN_ALG_OID_GROUP_ID);
    return entry != nullptr ? entry->pwszName : platform::ToWide(oid);
}

std::u16string Timestamp(platform::FILETIME moment) {
    toolkit::CkDateTimeW date;
    date.SetFromFileTime(true, moment);
    return date.GetAsTimestamp(true);
}

// Every element goes to the same place, so that the last one stays.
void WriteLast(toolkit::CkJsonObjectW& record, const char16_t* path, const std::vector<std::u16string>& list) {
    if (!list.empty()) Write(record, path, list.back());
}

void WriteMembers(CryptCertificate& certificate, toolkit::CkJsonObjectW& record) {
    const auto& context = certificate.Context();
    Write(record, u"Serial", certificate.GetSerialNumber());
    Write(record, u"CommonName", certificate.GetSubjectName());
    Write(record, u"Issuer", certificate.GetIssuerName());
    Write(record, u"Subject", SubjectText(context));
    Write(record, u"Organization", certificate.GetOrganization());
    Write(record, u"Thumbprint", certificate.GetThumbprint());
    Write(record, u"ThumbprintSHA256", certificate.GetThumbprintSha256());
    Write(record, u"SignatureAlgorithm", SignatureAlgorithmText(context));
    Write(record, u"SubjectKeyId", certificate.GetSubjectKeyId());
    Write(record, u"AuthorityKeyId", certificate.GetAuthorityKeyId());
    record.UpdateInt(u"KeySize", static_cast<int>(platform::CertGetPublicKeyLength(context)));
    Write(record, u"NotBefore", Timestamp(context.Info().NotBefore));
    Write(record, u"NotAfter", Timestamp(context.Info().NotAfter));
    WriteLast(record, u"CRL[0]", certificate.GetCrlUrls());
    WriteLast(record, u"OCSP[0]", certificate.GetOcspUrls());
    certificate.LoadEnhancedKeyUsage();  // undecodable usages are none
    WriteLast(record, u"EnhancedKeyUsage[0]", certificate.UsagesNonCritical());
    WriteLast(record, u"EnhancedKeyUsageCritical[0]", certificate.UsagesCritical());
}

}  // namespace

bool FillRecord(const platform::CertificateContext& context, toolkit::CkJsonObjectW& record) {
    try {
        CryptCertificate certificate(context, true);
        WriteMembers(certificate, record);
        return true;
    } catch (const std::exception& error) {
        record.UpdateBool(u"Error", true);
        record.UpdateString(u"ErrorMessage", units::WideFromWhat(error.what()).c_str());
        return false;
    }
}

}  // namespace certificates

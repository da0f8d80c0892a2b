#pragma once

#include <string>
#include <vector>

#include "crypt/CommonClass.h"
#include "crypt/CryptStore.h"
#include "crypt/Status.h"
#include "platform/Certificates.h"
#include "platform/Chains.h"

namespace tessaly {

// A certificate with its texts and its chain's verdict. Texts are computed when first asked for and kept; an accessor
// that fails answers an empty text and leaves the reason in lastError. Hexadecimal texts are upper case without
// separators. Not to be used from two threads at once: the caches make even the accessors writers.
class CryptCertificate : public CommonClass {
  public:
    CryptCertificate() = default;
    // `duplicate` tells whether the caller keeps its own handle; a context is a value here, so both forms share it.
    CryptCertificate(const platform::CertificateContext& context, bool duplicate);
    // From DER. Without context, and with the reason in lastError, if the bytes are no certificate.
    explicit CryptCertificate(platform::ByteView encoded);
    // A copy has the context and the chain; its texts are computed anew.
    CryptCertificate(const CryptCertificate& other);
    CryptCertificate& operator=(const CryptCertificate& other);
    CryptCertificate(CryptCertificate&&) = default;
    CryptCertificate& operator=(CryptCertificate&&) = default;

    [[nodiscard]] const platform::CertificateContext& Context() const { return context_; }
    // The chain of the last successful BuildChain; without elements before.
    [[nodiscard]] const platform::ChainContext& Chain() const { return chain_; }

    std::u16string GetSubjectName();
    std::u16string GetIssuerName();
    std::u16string GetOrganization();  // organizationName of the subject
    std::u16string GetSerialNumber();  // as a person reads it
    std::u16string GetThumbprint();    // SHA-1
    std::u16string GetThumbprintSha256();
    std::u16string GetSubjectKeyId();
    // Of the older extension 2.5.29.1 if the certificate has it, else of 2.5.29.35: the key identifier, else the serial
    // number in the same structure. Less than two bytes count as absent.
    std::u16string GetAuthorityKeyId();
    // Short date of the user's locale, in local time.
    std::u16string GetValidFrom();
    std::u16string GetValidTo();
    // URLs of the CRL distribution points in the certificate's order, of every scheme.
    std::vector<std::u16string> GetCrlUrls();

    // What an extension under the number of the OCSP access method names. Certificates keep their responders under
    // authorityInfoAccess instead, so the list is empty for nearly all of them; readers of the record rely on that.
    std::vector<std::u16string> GetOcspUrls();

    // Fills one of the two lists of usage names, by whether the extension is critical. False if the usages do not
    // decode.
    bool LoadEnhancedKeyUsage();
    [[nodiscard]] const std::vector<std::u16string>& UsagesCritical() const { return usagesCritical_; }
    [[nodiscard]] const std::vector<std::u16string>& UsagesNonCritical() const { return usagesNonCritical_; }

    // Builds and judges the chain for now, with revocation asked of every element; issuers are looked for in the store
    // too.
    CertStatusResult BuildChain(const CryptStore& additionalStore);

    // Whether the first comes before the second in a list by subject, without letter case.
    static bool LessBySubjectName(const platform::CertificateContext& first,
                                  const platform::CertificateContext& second);

  private:
    std::u16string NameOf(std::uint32_t type, std::uint32_t flags, std::string_view oid = {});
    std::u16string HashOf(std::uint32_t property);

    std::vector<std::u16string> crlUrls_, ocspUrls_;
    std::u16string subjectName_, serialNumber_, issuerName_, organization_, thumbprint_, thumbprintSha256_;
    std::u16string authorityKeyId_, subjectKeyId_;
    std::vector<std::u16string> usagesNonCritical_, usagesCritical_;
    platform::CertificateContext context_;
    platform::ChainContext chain_;
};

// A moment as the short date of the user's locale, in local time.
std::u16string FormatShortDate(platform::FILETIME moment);

// Upper-case hexadecimal, two digits a byte.
std::u16string HexText(platform::ByteView bytes);

}  // namespace tessaly

#include "crypt/CryptCertificate.h"

#include <algorithm>

#include "platform/Error.h"
#include "platform/System.h"
#include "platform/Text.h"

namespace tessaly {
namespace {

// A text that computes to empty is computed again on each call.
template <typename Compute>
const std::u16string& Cached(std::u16string& cache, Compute&& compute) {
    if (cache.empty()) cache = compute();
    return cache;
}

std::u16string IdentifierText(const platform::CERT_AUTHORITY_KEY_ID& id) {
    constexpr std::size_t shortest = 2;  // a single byte stands for "none" with some makers
    if (id.KeyId.size() >= shortest) return HexText(id.KeyId);
    if (id.CertSerialNumber.size() >= shortest) return HexText(id.CertSerialNumber);
    return {};
}

}  // namespace

std::u16string HexText(platform::ByteView bytes) {
    constexpr char16_t digits[] = u"0123456789ABCDEF";
    std::u16string text;
    text.reserve(bytes.size() * 2);
    for (const auto byte : bytes) {
        text += digits[byte >> 4];
        text += digits[byte & 0xF];
    }
    return text;
}

std::u16string FormatShortDate(platform::FILETIME moment) {
    const auto local = platform::FileTimeToSystemTime(platform::FileTimeToLocalFileTime(moment));
    return platform::GetDateFormatW(local.wYear, local.wMonth, local.wDay);
}

CryptCertificate::CryptCertificate(const platform::CertificateContext& context, bool) : context_(context) {}

CryptCertificate::CryptCertificate(platform::ByteView encoded)
    : context_(platform::CertCreateCertificateContext(encoded)) {
    if (!context_) lastError = platform::GetLastError();
}

// NOLINTNEXTLINE(bugprone-copy-constructor-init): the failure of the other's last operation is none of the copy.
CryptCertificate::CryptCertificate(const CryptCertificate& other)
    : CommonClass(), context_(other.context_), chain_(other.chain_) {}

CryptCertificate& CryptCertificate::operator=(const CryptCertificate& other) {
    if (this != &other) *this = CryptCertificate(other);
    return *this;
}

std::u16string CryptCertificate::NameOf(std::uint32_t type, std::uint32_t flags, std::string_view oid) {
    return context_ ? platform::CertGetNameStringW(context_, type, flags, oid) : std::u16string();
}

std::u16string CryptCertificate::HashOf(std::uint32_t property) {
    if (!context_) return {};
    const auto hash = platform::CertGetCertificateContextProperty(context_, property);
    if (!hash) lastError = platform::GetLastError();
    return hash ? HexText(*hash) : std::u16string();
}

std::u16string CryptCertificate::GetSubjectName() {
    return Cached(subjectName_, [this] { return NameOf(platform::CERT_NAME_SIMPLE_DISPLAY_TYPE, 0); });
}

std::u16string CryptCertificate::GetIssuerName() {
    return Cached(issuerName_,
                  [this] { return NameOf(platform::CERT_NAME_SIMPLE_DISPLAY_TYPE, platform::CERT_NAME_ISSUER_FLAG); });
}

std::u16string CryptCertificate::GetOrganization() {
    return Cached(organization_, [this] { return NameOf(platform::CERT_NAME_ATTR_TYPE, 0, "2.5.4.10"); });
}

std::u16string CryptCertificate::GetSerialNumber() {
    return Cached(serialNumber_, [this] {
        if (!context_) return std::u16string();
        auto serial = context_.Info().SerialNumber;
        std::reverse(serial.begin(), serial.end());
        return HexText(serial);
    });
}

std::u16string CryptCertificate::GetThumbprint() {
    return Cached(thumbprint_, [this] { return HashOf(platform::CERT_SHA1_HASH_PROP_ID); });
}

std::u16string CryptCertificate::GetThumbprintSha256() {
    return Cached(thumbprintSha256_, [this] { return HashOf(platform::CERT_SHA256_HASH_PROP_ID); });
}

std::u16string CryptCertificate::GetSubjectKeyId() {
    return Cached(subjectKeyId_, [this] {
        const auto* extension = context_ ? platform::CertFindExtension(context_, "2.5.29.14") : nullptr;
        if (extension == nullptr) return std::u16string();
        return HexText(platform::DecodeOctetString(extension->Value).value_or(platform::Bytes()));
    });
}

std::u16string CryptCertificate::GetAuthorityKeyId() {
    return Cached(authorityKeyId_, [this] {
        if (!context_) return std::u16string();
        std::optional<platform::CERT_AUTHORITY_KEY_ID> id;
        if (const auto* older = platform::CertFindExtension(context_, "2.5.29.1")) {
            id = platform::DecodeAuthorityKeyId(older->Value);
        } else if (const auto* extension = platform::CertFindExtension(context_, "2.5.29.35")) {
            id = platform::DecodeAuthorityKeyId2(extension->Value);
        }
        return id ? IdentifierText(*id) : std::u16string();
    });
}

std::u16string CryptCertificate::GetValidFrom() {
    return context_ ? FormatShortDate(context_.Info().NotBefore) : std::u16string();
}

std::u16string CryptCertificate::GetValidTo() {
    return context_ ? FormatShortDate(context_.Info().NotAfter) : std::u16string();
}

std::vector<std::u16string> CryptCertificate::GetCrlUrls() {
    if (!crlUrls_.empty() || !context_) return crlUrls_;
    const auto* extension = platform::CertFindExtension(context_, "2.5.29.31");
    if (extension == nullptr) return {};
    for (const auto& point :
         platform::DecodeCrlDistPoints(extension->Value).value_or(std::vector<platform::CRL_DIST_POINT>())) {
        if (point.dwDistPointNameChoice != platform::CRL_DIST_POINT_FULL_NAME) continue;
        for (const auto& name : point.FullName) {
            if (name.dwAltNameChoice == platform::CERT_ALT_NAME_URL) crlUrls_.push_back(name.pwszText);
        }
    }
    return crlUrls_;
}

std::vector<std::u16string> CryptCertificate::GetOcspUrls() {
    if (!ocspUrls_.empty() || !context_) return ocspUrls_;
    const auto* extension = platform::CertFindExtension(context_, "1.3.6.1.5.5.7.48.1");
    const auto descriptions =
        extension != nullptr ? platform::DecodeAccessDescriptions(extension->Value) : std::nullopt;
    if (!descriptions) return {};
    for (const auto& description : *descriptions) {
        if (!description.AccessLocation.pwszText.empty()) ocspUrls_.push_back(description.AccessLocation.pwszText);
    }
    return ocspUrls_;
}

bool CryptCertificate::LoadEnhancedKeyUsage() {
    if (!usagesCritical_.empty() && !usagesNonCritical_.empty()) return true;
    const auto usages = platform::CertGetEnhancedKeyUsage(context_);
    if (!usages) {
        lastError = platform::GetLastError();
        return false;
    }
    const auto* extension = platform::CertFindExtension(context_, "2.5.29.37");
    auto& list = extension != nullptr && extension->fCritical ? usagesCritical_ : usagesNonCritical_;
    list.clear();  // one certificate fills one list, and a second call finds the same usages
    for (const auto& usage : *usages) {
        const auto* entry = platform::CryptFindOIDInfo(platform::CRYPT_OID_INFO_OID_KEY, usage,
                                                       platform::CRYPT_ENHKEY_USAGE_OID_GROUP_ID);
        list.push_back(entry != nullptr ? entry->pwszName : platform::ToWide(usage));
    }
    return true;
}

CertStatusResult CryptCertificate::BuildChain(const CryptStore& additionalStore) {
    platform::ChainParameters parameters;
    parameters.additionalStore = additionalStore.store;
    parameters.flags = platform::CERT_CHAIN_REVOCATION_CHECK_CHAIN;
    auto chain = platform::CertGetCertificateChain(context_, parameters);
    if (!chain) {
        lastError = platform::GetLastError();
        return {GetErrorText(), kStatusNotBuilt};
    }
    chain_ = std::move(*chain);
    const auto status = platform::CertVerifyCertificateChainPolicy(chain_);
    return {StatusText(status), status};
}

bool CryptCertificate::LessBySubjectName(const platform::CertificateContext& first,
                                         const platform::CertificateContext& second) {
    const auto a = CryptCertificate(first, true).GetSubjectName();
    const auto b = CryptCertificate(second, true).GetSubjectName();
    return std::lexicographical_compare(a.begin(), a.end(), b.begin(), b.end(), [](char16_t x, char16_t y) {
        return platform::CharLowerW(x) < platform::CharLowerW(y);
    });
}

}  // namespace tessaly

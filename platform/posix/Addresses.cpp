#include "platform/posix/Addresses.h"

#include <algorithm>

#include "platform/Text.h"
#include "platform/posix/Native.h"

namespace platform::posix {
namespace {

constexpr std::size_t kMostAddresses = 8;
constexpr std::string_view kCrlDistributionPoints = "2.5.29.31", kFreshestCrl = "2.5.29.46",
                           kAuthorityInfoAccess = "1.3.6.1.5.5.7.1.1", kOcsp = "1.3.6.1.5.5.7.48.1",
                           kCaIssuers = "1.3.6.1.5.5.7.48.2";

void Add(std::vector<std::string>& addresses, const CERT_ALT_NAME_ENTRY& name) {
    if (name.dwAltNameChoice != CERT_ALT_NAME_URL || addresses.size() >= kMostAddresses) return;
    std::string url = ToUtf8(name.pwszText);
    std::string scheme = url.substr(0, url.find("://"));
    std::ranges::transform(scheme, scheme.begin(), [](char c) { return c >= 'A' && c <= 'Z' ? c - 'A' + 'a' : c; });
    if (scheme != "http" && scheme != "https") return;
    if (std::ranges::find(addresses, url) == addresses.end()) addresses.push_back(std::move(url));
}

void AddPoints(std::vector<std::string>& addresses, ByteView der) {
    const auto points = DecodeCrlDistPoints(der);
    if (!points) return;
    for (const CRL_DIST_POINT& point : *points) {
        for (const CERT_ALT_NAME_ENTRY& name : point.FullName)
            Add(addresses, name);
    }
}

std::vector<std::string> AccessAddresses(const CertificateContext& certificate, std::string_view method) {
    std::vector<std::string> addresses;
    const CERT_EXTENSION* extension = CertFindExtension(certificate, kAuthorityInfoAccess);
    const auto descriptions = extension ? DecodeAccessDescriptions(extension->Value) : std::nullopt;
    if (!descriptions) return addresses;
    for (const CERT_ACCESS_DESCRIPTION& description : *descriptions) {
        if (description.pszAccessMethod == method) Add(addresses, description.AccessLocation);
    }
    return addresses;
}

}  // namespace

std::vector<std::string> CrlAddresses(const CertificateContext& certificate) {
    std::vector<std::string> addresses;
    if (const CERT_EXTENSION* extension = CertFindExtension(certificate, kCrlDistributionPoints))
        AddPoints(addresses, extension->Value);
    return addresses;
}

std::vector<std::string> DeltaAddresses(const CertificateContext& certificate, const CrlContext& base) {
    std::vector<std::string> addresses;
    if (const CERT_EXTENSION* extension = CertFindExtension(certificate, kFreshestCrl))
        AddPoints(addresses, extension->Value);
    X509_CRL* native = NativeOf(base);
    const int at = native ? X509_CRL_get_ext_by_NID(native, NID_freshest_crl, -1) : -1;
    if (at < 0) return addresses;
    const ASN1_OCTET_STRING* value = X509_EXTENSION_get_data(X509_CRL_get_ext(native, at));
    AddPoints(addresses, {ASN1_STRING_get0_data(value), static_cast<std::size_t>(ASN1_STRING_length(value))});
    return addresses;
}

std::vector<std::string> OcspAddresses(const CertificateContext& certificate) {
    return AccessAddresses(certificate, kOcsp);
}

std::vector<std::string> IssuerAddresses(const CertificateContext& certificate) {
    return AccessAddresses(certificate, kCaIssuers);
}

}  // namespace platform::posix

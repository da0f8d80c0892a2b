#include "src/certificates/Filter.h"

#include <algorithm>

#include "platform/System.h"
#include "platform/Text.h"

namespace certificates {
namespace {

UpperCaseList ReadList(toolkit::CkJsonObjectW& request, std::u16string_view key) {
    UpperCaseList list;
    const std::u16string name(key);
    const std::u16string element = name + u"[i]";
    const int size = request.HasMember(name.c_str()) ? request.SizeOfArray(name.c_str()) : 0;
    for (int i = 0; i < size; ++i) {
        request.put_I(i);
        if (const auto* text = request.StringOf(element.c_str())) list.Add(text);
    }
    return list;
}

}  // namespace

void UpperCaseList::Add(std::u16string text) {
    std::ranges::transform(text, text.begin(), platform::CharUpperW);
    entries_.insert(std::move(text));
}

bool CertificateFilter::LetsThrough(tessaly::CryptCertificate& certificate) const {
    const auto authId = certificate.GetAuthorityKeyId(), thumbprint = certificate.GetThumbprint();
    if (authIdExclude.Contains(authId) || thumbprintExclude.Contains(thumbprint)) return false;
    if (authIdInclude.Empty() && thumbprintInclude.Empty()) return true;
    return authIdInclude.Contains(authId) || thumbprintInclude.Contains(thumbprint);
}

CertificateFilter ReadFilter(toolkit::CkJsonObjectW& request) {
    CertificateFilter filter;
    filter.thumbprintExclude = ReadList(request, u"ThumbprintExclude");
    filter.authIdExclude = ReadList(request, u"AuthIdExclude");
    filter.thumbprintInclude = ReadList(request, u"ThumbprintInclude");
    filter.authIdInclude = ReadList(request, u"AuthIdInclude");
    return filter;
}

void ForEachFiltered(const tessaly::CryptStore& source, const CertificateFilter& filter,
                     const std::function<void(tessaly::CryptCertificate)>& take) {
    const auto now = platform::GetSystemTimeAsFileTime();
    for (const auto& context : platform::CertEnumCertificatesInStore(source.store)) {
        if (platform::CertVerifyTimeValidity(now, context) != 0) continue;
        tessaly::CryptCertificate certificate(context, true);
        if (filter.LetsThrough(certificate)) take(std::move(certificate));
    }
}

void CopyFiltered(const tessaly::CryptStore& source, const CertificateFilter& filter, tessaly::CryptStore& target) {
    ForEachFiltered(source, filter, [&](const tessaly::CryptCertificate& certificate) {
        platform::CertAddCertificateContextToStore(target.store, certificate.Context(), platform::CERT_STORE_ADD_NEWER);
    });
}

}  // namespace certificates

// Records of certificates and requests for them: every certificate that decodes has a whole record, which reads back as
// JSON, and any text is a request or refused.

#include <cstdlib>
#include <string>

#include "platform/Text.h"
#include "src/certificates/Record.h"
#include "src/certificates/Request.h"

namespace {

void Require(bool holds) {
    if (!holds) std::abort();
}

void Describe(const platform::CertificateContext& context, const certificates::CertificateFilter& filter) {
    toolkit::CkJsonObjectW record, again;
    Require(certificates::FillRecord(context, record));
    Require(again.Load(record.Emit()));
    for (const auto* key : {u"Serial", u"CommonName", u"Subject", u"ThumbprintSHA256", u"KeySize", u"NotAfter"})
        Require(again.StringOf(key) != nullptr && std::u16string(again.StringOf(key)) == record.StringOf(key));
    tessaly::CryptCertificate certificate(context, true);
    (void)filter.LetsThrough(certificate);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const platform::ByteView bytes(data, size);
    // A brace keeps the text from being taken for the name of a file.
    const auto request = certificates::ReadRequest((u"{" + platform::ToWide(platform::AsText(bytes))).c_str());
    const auto filter = request ? request->filter : certificates::CertificateFilter();
    for (const auto& context : platform::CertEnumCertificatesInStore(platform::CertOpenBytesStore(bytes)))
        Describe(context, filter);
    return 0;
}

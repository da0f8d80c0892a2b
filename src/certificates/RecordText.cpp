#include "src/certificates/RecordText.h"

#include "crypt/CryptCertificate.h"
#include "toolkit/CkDateTimeW.h"

namespace certificates {

std::u16string TextOf(toolkit::CkJsonObjectW& record, const char16_t* key) {
    const auto* text = record.StringOf(key);
    return text != nullptr ? text : std::u16string();
}

std::u16string ShortDateOf(toolkit::CkJsonObjectW& record, const char16_t* key) {
    toolkit::CkDateTimeW moment;
    moment.SetFromTimestamp(TextOf(record, key).c_str());
    return tessaly::FormatShortDate(moment.GetAsFileTime(true));
}

}  // namespace certificates

#include "src/certificates/KeyListing.h"

#include <string>

#include "crypt/CryptCertificate.h"
#include "platform/Keys.h"
#include "platform/Text.h"
#include "src/Norvik.h"

namespace certificates {
namespace {

std::u16string HexNumber(std::uint32_t number) {
    std::u16string text;
    do {
        text.insert(text.begin(), u"0123456789abcdef"[number & 0xF]);
        number >>= 4;
    } while (number != 0);
    return u"0x" + text;
}

// A key is opened when it is listed, so both have the same status.
std::u16string LineOf(const platform::NCryptKeyName& key) {
    auto line = u"Ok: NCryptOpenKey: " + HexNumber(platform::ERROR_SUCCESS) + u", Key Name: " + key.pszName +
                u", AlgId: " + key.pszAlgid;
    if (key.certificate) line += u"CommonName: " + tessaly::CryptCertificate(key.certificate, true).GetSubjectName();
    return line;
}

}  // namespace

void ReportKeys(const char16_t* provider, NorvikRecordCallback callback, std::uint64_t context) {
    if (callback == nullptr) return;
    const auto report = [&](const std::u16string& line) {
        LogInfo(line);
        callback(context, true, line.c_str(), nullptr, nullptr, nullptr, nullptr, nullptr);
    };
    const auto keys = platform::NCryptEnumKeys(provider != nullptr ? provider : u"");
    const auto status = platform::GetLastError();
    if (status == platform::NTE_KEYSET_NOT_DEF) return report(u"NCryptOpenStorageProvider could not open storage!");
    if (status != platform::NTE_NO_MORE_ITEMS) return report(u"Error: NCryptEnumKeys : " + HexNumber(status));
    if (keys.empty()) return report(u"No keys in the provider!");
    report(u"ok: NCryptEnumKeys : " + HexNumber(platform::ERROR_SUCCESS));
    for (const auto& key : keys)
        report(LineOf(key));
}

}  // namespace certificates

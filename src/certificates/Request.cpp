#include "src/certificates/Request.h"

#include <algorithm>
#include <filesystem>

#include "platform/Text.h"
#include "src/certificates/PfxSource.h"
#include "src/certificates/RecordText.h"

namespace certificates {
namespace {

bool NamesPfx(std::u16string file) {
    std::ranges::transform(file, file.begin(), platform::CharLowerW);
    const auto extension = std::filesystem::path(file).extension();
    return extension == ".pfx" || extension == ".p12";
}

std::optional<std::u16string> ReadName(toolkit::CkJsonObjectW& request, const char16_t* key) {
    if (!request.HasMember(key)) return std::nullopt;
    return TextOf(request, key);
}

tessaly::CryptStore OpenFile(const std::u16string& file, const platform::Secret& password) {
    if (NamesPfx(file)) return OpenPfx(file, password);
    tessaly::CryptStore source(platform::CertOpenFileStore(file));
    if (!source.store) source.lastError = platform::GetLastError();
    return source;
}

// False for a source that did not open or is empty.
bool AddFiltered(const tessaly::CryptStore& source, const CertificateRequest& request, tessaly::CryptStore& target) {
    if (source.GetCertificateCount() == 0) return false;
    CopyFiltered(source, request.filter, target);
    return true;
}

}  // namespace

std::optional<CertificateRequest> ReadRequest(const char16_t* text) {
    toolkit::CkJsonObjectW json;
    if (!json.Load(text) || json.Size() < 1) return std::nullopt;
    CertificateRequest request;
    request.file = ReadName(json, u"Filename");
    request.store = ReadName(json, u"Store");
    if (!request.file && !request.store) return std::nullopt;
    request.filter = ReadFilter(json);
    if (request.file && NamesPfx(*request.file)) request.password = SecretOf(json, u"Password");
    if (json.HasMember(u"ShowDialogIfOne")) request.showDialogIfOne = json.BoolOf(u"ShowDialogIfOne");
    return request;
}

platform::Secret SecretOf(toolkit::CkJsonObjectW& json, const char16_t* key) {
    auto utf8 = platform::ToUtf8(TextOf(json, key));
    platform::Secret password(utf8);
    platform::Wipe(utf8.data(), utf8.size());
    return password;
}

GatheredCertificates Gather(const CertificateRequest& request) {
    GatheredCertificates gathered;
    if (request.file) {
        const auto source = OpenFile(*request.file, request.password);
        if (!AddFiltered(source, request, gathered.certificates)) {
            gathered.failure = u"Cannot open file.\n" + source.GetErrorText();
            return gathered;
        }
    }
    if (request.store && !AddFiltered(tessaly::CryptStore(*request.store), request, gathered.certificates))
        gathered.failure = u"Cannot open certificate store.\n";
    return gathered;
}

}  // namespace certificates

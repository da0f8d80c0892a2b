#include "src/verification/SignInfoReport.h"

#include <string>

#include "src/certificates/Record.h"
#include "src/verification/VerifySignature.h"
#include "toolkit/CkDateTimeW.h"
#include "toolkit/CkJsonObjectW.h"
#include "units/BlankText.h"

namespace verification {
namespace {

using toolkit::CkJsonArrayW;
using toolkit::CkJsonObjectW;

constexpr char16_t kNoSignatures[] = u"No sings in the file.";  // its readers know it in this spelling

const char16_t* OkOrFail(std::uint32_t status) {
    return status == 0 ? u"ok" : u"fail";
}

void UpdateIfAny(CkJsonObjectW& object, const char16_t* key, const std::u16string& text) {
    if (!text.empty()) object.UpdateString(key, text.c_str());
}

void UpdateTime(CkJsonObjectW& object, const char16_t* key, std::int64_t seconds) {
    toolkit::CkDateTimeW date;
    date.SetFromUnixTime(true, seconds);
    object.UpdateString(key, date.GetAsTimestamp(true));
}

void FillSignInfo(const SignatureEntry& entry, CkJsonObjectW& object) {
    if (entry.signStatus != 0) {
        object.UpdateBool(u"Error", true);
        object.UpdateString(u"ErrorMessage", entry.signMessage.c_str());
    }
    object.UpdateString(u"SignStatus", OkOrFail(entry.signStatus));
    if (entry.signStatus != 0) object.UpdateString(u"SignStatusMessage", entry.signMessage.c_str());
    object.UpdateString(u"CertStatus", OkOrFail(entry.certStatus));
    if (entry.certStatus != 0) object.UpdateString(u"CertStatusMessage", entry.certMessage.c_str());
    UpdateIfAny(object, u"CRLStatusMessage", entry.crlMessage);
    CkJsonObjectW certificate;
    certificates::FillRecord(entry.certificate->Context(), certificate);
    object.AddObjectCopyAt(-1, u"Certificate", certificate);
    object.UpdateString(u"HashAlgorithm", entry.hashAlgorithm.c_str());
    object.UpdateBool(u"CADES", entry.isCades);
    object.UpdateBool(u"Timestamp", entry.hasTimestamp);
    if (!entry.signingTimeText.empty()) UpdateTime(object, u"SigningTime", entry.signingTime);
    if (entry.hasTimestamp) UpdateTime(object, u"SigningTimestamp", entry.timestampTime);
    object.UpdateString(u"Digest", entry.digest.c_str());
    UpdateIfAny(object, u"Comment", entry.comment);
}

bool Fail(CkJsonArrayW& answer, const char16_t* message) {
    CkJsonObjectW failure;
    failure.UpdateBool(u"Error", true);
    failure.UpdateString(u"ErrorMessage", message);
    answer.AddObjectCopyAt(-1, failure);
    return false;
}

std::filesystem::path PathOf(CkJsonObjectW& request, const char16_t* key) {
    const auto* const text = request.StringOf(key);
    return text != nullptr ? std::filesystem::path(text) : std::filesystem::path();
}

bool Answer(const char16_t* text, CkJsonArrayW& answer) {
    CkJsonObjectW request;
    if (units::IsBlank(text) || !request.Load(text) || !request.HasMember(u"SignFile")) {
        answer.put_EmitCompact(true);
        return Fail(answer, u"Invalid input parameters");
    }
    answer.put_EmitCompact(false);
    SignatureEntries entries;
    std::optional<std::filesystem::path> dataFile;
    if (request.HasMember(u"DataFile")) dataFile = PathOf(request, u"DataFile");
    VerifySignatureFile(PathOf(request, u"SignFile"), dataFile, entries);
    if (entries.empty()) return Fail(answer, kNoSignatures);
    AddSignInfo(entries, answer);
    return true;
}

const std::u16string& MessageOf(const SignatureEntry& entry) {
    return entry.signStatus == 0 && entry.certStatus != 0 ? entry.certMessage : entry.signMessage;
}

}  // namespace

void AddSignInfo(const SignatureEntries& entries, CkJsonArrayW& answer) {
    for (const auto& entry : entries) {
        CkJsonObjectW object;
        FillSignInfo(entry, object);
        answer.AddObjectCopyAt(-1, object);
    }
}

bool ReportSignInfoJson(const char16_t* request, NorvikJsonCallback callback, std::uint64_t context) {
    if (callback == nullptr) return false;
    CkJsonArrayW answer;
    const bool done = Answer(request, answer);
    callback(context, answer.Emit());
    return done;
}

void ReportSignInfo(const char16_t* file, const char16_t* dataFile, NorvikSignInfoCallback callback,
                    std::uint64_t context) {
    if (callback == nullptr) return;
    std::optional<std::filesystem::path> data;
    if (dataFile != nullptr) data = dataFile;
    SignatureEntries entries;
    VerifySignatureFile(file != nullptr ? file : u"", data, entries);
    if (entries.empty())
        return callback(context, 1, kNoSignatures, 0, nullptr, 0, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr);
    for (const auto& entry : entries) {
        auto& certificate = *entry.certificate;
        const auto subject = certificate.GetSubjectName(), from = certificate.GetValidFrom(),
                   to = certificate.GetValidTo(), thumbprint = certificate.GetThumbprint(),
                   issuer = certificate.GetIssuerName();
        const bool good = entry.signStatus == 0 && entry.certStatus == 0;
        callback(context, 0, nullptr, 0, entry.signingTimeText.c_str(), good ? 0 : 1, MessageOf(entry).c_str(),
                 subject.c_str(), from.c_str(), to.c_str(), thumbprint.c_str(), issuer.c_str());
    }
}

}  // namespace verification

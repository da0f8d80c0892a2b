#include "src/certificates/CertificateReport.h"

#include <ctime>
#include <stdexcept>
#include <string>

#include "platform/Text.h"
#include "src/certificates/Record.h"
#include "src/certificates/RecordText.h"
#include "toolkit/CkDateTimeW.h"
#include "toolkit/CkJsonObjectW.h"
#include "units/BlankText.h"

namespace certificates {
namespace {

bool Fail(toolkit::CkJsonArrayW& answer, const std::u16string& text) {
    toolkit::CkJsonObjectW object;
    object.UpdateBool(u"Error", true);
    object.UpdateString(u"ErrorMessage", text.c_str());
    answer.AddObjectCopyAt(-1, object);
    return false;
}

// A certificate is never left out without a word: a record that fails is tried again, and then fails the whole answer.
void AddRecord(const platform::CertificateContext& certificate, toolkit::CkJsonArrayW& answer) {
    constexpr int tries = 2;
    for (int i = 0; i < tries; ++i) {
        toolkit::CkJsonObjectW record;
        if (FillRecord(certificate, record)) {
            answer.AddObjectCopyAt(-1, record);
            return;
        }
        if (i + 1 == tries) throw std::runtime_error(platform::ToUtf8(record.StringOf(u"ErrorMessage")));
    }
}

bool Answer(const char16_t* text, toolkit::CkJsonArrayW& answer) {
    answer.put_EmitCompact(false);
    const auto request = ReadRequest(text);
    if (!request) return Fail(answer, u"CertInfoJson: Invalid input parameters!!!");
    return CollectRecords(*request, answer);
}

// Compares a local reading of the clock with UTC: the value that callers have always been given.
bool ValidNow(toolkit::CkJsonObjectW& record) {
    toolkit::CkDateTimeW from, to;
    from.SetFromTimestamp(TextOf(record, u"NotBefore").c_str());
    to.SetFromTimestamp(TextOf(record, u"NotAfter").c_str());
    const std::int64_t now = std::time(nullptr);
    return to.GetAsUnixTime64(true) >= now && from.GetAsUnixTime64(true) <= now;
}

// `tell` takes the arguments of the record callback with flag but for the context.
template <typename Tell>
void TellFailure(const Tell& tell, const std::u16string& text) {
    tell(true, text.c_str(), nullptr, nullptr, nullptr, nullptr, nullptr, false);
}

template <typename Tell>
void TellRecord(const Tell& tell, toolkit::CkJsonObjectW& record) {
    const auto name = TextOf(record, u"CommonName"), from = ShortDateOf(record, u"NotBefore"),
               to = ShortDateOf(record, u"NotAfter"), thumbprint = TextOf(record, u"Thumbprint"),
               issuer = TextOf(record, u"Issuer");
    tell(false, nullptr, name.c_str(), from.c_str(), to.c_str(), thumbprint.c_str(), issuer.c_str(), ValidNow(record));
}

template <typename Tell>
void TellAll(const Tell& tell, const char16_t* json) {
    toolkit::CkJsonArrayW records;
    if (!records.Load(json)) return TellFailure(tell, u"CertInfo2: Error parsing data!!!");
    const int size = records.Size();
    for (int i = 0; i < size; ++i) {
        const auto record = records.ObjectAt(i);
        if (!record) return TellFailure(tell, u"CertInfo2: Error parsing data!!!");
        if (record->BoolOf(u"Error")) return TellFailure(tell, TextOf(*record, u"ErrorMessage"));
        TellRecord(tell, *record);
    }
}

template <typename Tell>
bool ReportFile(const char16_t* file, const Tell& tell) {
    toolkit::CkJsonObjectW request;
    request.UpdateString(u"Filename", file);
    toolkit::CkJsonArrayW answer;
    const bool done = Answer(request.Emit(), answer);
    TellAll(tell, answer.Emit());
    return done;
}

}  // namespace

bool CollectRecords(const CertificateRequest& request, toolkit::CkJsonArrayW& answer) {
    const auto gathered = Gather(request);
    if (!gathered.failure.empty()) return Fail(answer, gathered.failure);
    for (const auto& certificate : platform::CertEnumCertificatesInStore(gathered.certificates.store))
        AddRecord(certificate, answer);
    return true;
}

bool ReportJson(const char16_t* request, NorvikJsonCallback callback, std::uint64_t context) {
    if (callback == nullptr || request == nullptr) return false;
    toolkit::CkJsonArrayW answer;
    const bool done = Answer(request, answer);
    callback(context, answer.Emit());
    return done;
}

bool ReportRecords(const char16_t* file, NorvikRecordCallback callback, std::uint64_t context) {
    if (callback == nullptr) return false;
    const auto tell = [&](bool error, const char16_t* message, const char16_t* name, const char16_t* from,
                          const char16_t* to, const char16_t* thumbprint, const char16_t* issuer,
                          bool) { callback(context, error, message, name, from, to, thumbprint, issuer); };
    if (!units::IsBlank(file)) return ReportFile(file, tell);
    TellFailure(tell, u"CertInfo: Invalid input parameters!!!");
    return false;
}

bool ReportRecordsWithFlag(const char16_t* file, NorvikRecordFlagCallback callback, std::uint64_t context) {
    if (callback == nullptr) return false;
    const auto tell = [&](auto... values) { callback(context, values...); };
    if (!units::IsBlank(file)) return ReportFile(file, tell);
    TellFailure(tell, u"CertInfo2: Invalid input parameters!!!");
    return false;
}

}  // namespace certificates

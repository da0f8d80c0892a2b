#include "src/certificates/Selection.h"

#include <algorithm>
#include <ctime>
#include <string>

#include "src/Norvik.h"
#include "src/certificates/Record.h"
#include "src/certificates/RecordText.h"
#include "src/certificates/Request.h"
#include "toolkit/CkDateTimeW.h"
#include "units/BlankText.h"

namespace certificates {
namespace {

// Nothing: the person chose nothing, and nobody is told.
enum class Outcome { chosen, nothing, failed };

Outcome Fail(toolkit::CkJsonObjectW& answer, const std::u16string& text) {
    answer.UpdateBool(u"Error", true);
    answer.UpdateString(u"ErrorMessage", text.c_str());
    return Outcome::failed;
}

platform::CertificateContext Choose(const tessaly::CryptStore& offered, bool showDialogIfOne) {
    const auto certificates = platform::CertEnumCertificatesInStore(offered.store);
    if (certificates.size() == 1 && !showDialogIfOne) return certificates.front();
    const auto app = CNorvikApp::Current();
    if (!app) return {};
    return app->Interface().AskCertificate({u"Избиране на сертификат ...", offered});
}

Outcome Select(const char16_t* text, toolkit::CkJsonObjectW& answer) {
    answer.put_EmitCompact(false);
    const auto request = ReadRequest(text);
    if (!request) return Fail(answer, u"CertInfoJson: Invalid input parameters!!!");
    const auto gathered = Gather(*request);
    if (!gathered.failure.empty()) return Fail(answer, gathered.failure);
    const auto chosen = Choose(gathered.certificates, request->showDialogIfOne);
    return chosen && FillRecord(chosen, answer) ? Outcome::chosen : Outcome::nothing;
}

// Both comparisons stand the wrong way round: applications have always been given false for a certificate that is
// valid, and NorvikCertInfo2 has the flag that tells.
bool OddFlag(toolkit::CkJsonObjectW& record) {
    toolkit::CkDateTimeW from, to;
    from.SetFromTimestamp(TextOf(record, u"NotBefore").c_str());
    to.SetFromTimestamp(TextOf(record, u"NotAfter").c_str());
    const std::int64_t now = std::time(nullptr);
    return from.GetAsUnixTime(true) >= now && to.GetAsUnixTime(true) <= now;
}

void TellFailure(NorvikRecordFlagCallback callback, std::uint64_t context, const std::u16string& text) {
    callback(context, true, text.c_str(), nullptr, nullptr, nullptr, nullptr, nullptr, false);
}

bool SelectAndTell(toolkit::CkJsonObjectW& request, NorvikRecordFlagCallback callback, std::uint64_t context) {
    toolkit::CkJsonObjectW record;
    const auto outcome = Select(request.Emit(), record);
    if (outcome == Outcome::failed) TellFailure(callback, context, TextOf(record, u"ErrorMessage"));
    if (outcome != Outcome::chosen) return false;
    const auto name = TextOf(record, u"CommonName"), from = TextOf(record, u"NotBefore"),
               to = TextOf(record, u"NotAfter"), thumbprint = TextOf(record, u"Thumbprint"),
               issuer = TextOf(record, u"Issuer");
    callback(context, false, nullptr, name.c_str(), from.c_str(), to.c_str(), thumbprint.c_str(), issuer.c_str(),
             OddFlag(record));
    return true;
}

// Half a name could be another person's: a text that does not fit leaves an empty one.
void Put(char16_t* buffer, const std::u16string& text) {
    constexpr std::size_t room = 300;
    if (text.size() < room) {
        *std::ranges::copy(text, buffer).out = 0;
    } else {
        *buffer = 0;
    }
}

bool SelectIntoBuffers(toolkit::CkJsonObjectW& request, const ChoiceBuffers& buffers, bool* flag) {
    toolkit::CkJsonObjectW record;
    if (Select(request.Emit(), record) != Outcome::chosen) return false;
    Put(buffers.commonName, TextOf(record, u"CommonName"));
    Put(buffers.thumbprint, TextOf(record, u"Thumbprint"));
    Put(buffers.notBefore, ShortDateOf(record, u"NotBefore"));
    Put(buffers.notAfter, ShortDateOf(record, u"NotAfter"));
    if (flag != nullptr) *flag = OddFlag(record);
    return true;
}

void AskForFile(toolkit::CkJsonObjectW& request, const char16_t* file, bool showDialogIfOne) {
    request.UpdateString(u"Filename", file);
    request.UpdateBool(u"ShowDialogIfOne", showDialogIfOne);
}

}  // namespace

bool SelectByJson(const char16_t* request, NorvikJsonCallback callback, std::uint64_t context) {
    if (callback == nullptr || request == nullptr) return false;
    toolkit::CkJsonObjectW answer;
    const auto outcome = Select(request, answer);
    if (outcome != Outcome::nothing) callback(context, answer.Emit());
    return outcome == Outcome::chosen;
}

bool SelectIntoBuffers(const ChoiceBuffers& buffers) {
    if (!buffers.Complete()) return false;
    toolkit::CkJsonObjectW request;
    request.UpdateString(u"Store", u"MY");
    return SelectIntoBuffers(request, buffers, nullptr);
}

int SelectFromFileIntoBuffers(const char16_t* file, const ChoiceBuffers& buffers, bool* flag, bool showDialogIfOne) {
    if (!buffers.Complete() || flag == nullptr || units::IsBlank(file)) return -1;
    toolkit::CkJsonObjectW request;
    AskForFile(request, file, showDialogIfOne);
    return SelectIntoBuffers(request, buffers, flag) ? 1 : 0;
}

// Its message names the other form: callers compare it as it has always been.
bool SelectFromStore(const char16_t* store, NorvikRecordFlagCallback callback, std::uint64_t context) {
    if (callback == nullptr) return false;
    if (units::IsBlank(store)) {
        TellFailure(callback, context, u"SelectCertificateFromFileCB: Invalid input parameters.");
        return false;
    }
    toolkit::CkJsonObjectW request;
    request.UpdateString(u"Store", store);
    return SelectAndTell(request, callback, context);
}

bool SelectFromFile(const char16_t* file, bool showDialogIfOne, NorvikRecordFlagCallback callback,
                    std::uint64_t context) {
    if (callback == nullptr) return false;
    if (units::IsBlank(file)) {
        TellFailure(callback, context, u"SelectCertificateFromFileCB: Invalid input parameters!!!");
        return false;
    }
    toolkit::CkJsonObjectW request;
    AskForFile(request, file, showDialogIfOne);
    return SelectAndTell(request, callback, context);
}

}  // namespace certificates

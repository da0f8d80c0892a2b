#include "src/signing/SignRequest.h"

#include <filesystem>
#include <stdexcept>

#include "platform/Text.h"
#include "src/EntryFrame.h"
#include "src/Norvik.h"
#include "src/ProgressDlg.h"
#include "src/certificates/PfxSource.h"
#include "src/certificates/Request.h"
#include "src/signing/SignEngine.h"
#include "toolkit/CkJsonArrayW.h"
#include "toolkit/CkJsonObjectW.h"

namespace signing {
namespace {

std::u16string TextOf(toolkit::CkJsonObjectW& json, const char16_t* key) {
    const auto* text = json.StringOf(key);
    return text != nullptr ? text : std::u16string();
}

std::vector<settings::TsaRecord> ReadAuthorities(toolkit::CkJsonObjectW& json) {
    if (!json.HasMember(u"TSA")) return settings::LoadTsaList(nullptr);
    const auto list = json.ArrayOf(u"TSA");
    return list ? settings::LoadTsaList(list->Emit()) : std::vector<settings::TsaRecord>();
}

// A signature is signed as a whole, never beside its own content.
bool IsSignature(const std::u16string& file) {
    const auto extension = std::filesystem::path(file).extension();
    return extension == ".p7m" || extension == ".p7s";
}

// A certificate that several sources hold is offered several times.
std::vector<tessaly::CryptCertificate> GatherCertificates(const SignRequest& request) {
    std::vector<tessaly::CryptCertificate> found;
    const auto add = [&](const tessaly::CryptStore& source) {
        certificates::ForEachFiltered(source, request.filter, [&](tessaly::CryptCertificate certificate) {
            found.push_back(std::move(certificate));
        });
    };
    if (request.pfx) add(certificates::OpenPfx(*request.pfx, request.pfxPassword));
    if (request.store) add(tessaly::CryptStore(*request.store));
    add(tessaly::CryptStore(u"MY"));
    return found;
}

ui::SignQuestion MakeQuestion(const SignRequest& request) {
    const bool nests = IsSignature(request.file);
    return {.certificates = GatherCertificates(request),
            .authorities = request.authorities,
            .detached = request.mode == 0 && !nests,
            .showDetachedBox = request.mode != 0 && request.mode != 1 && !nests};
}

bool Refuse(NorvikJsonCallback callback, std::uint64_t context) {
    return JsonFailure{callback, context}(u"SignFileJson: Invalid json input!!!");
}

bool Run(const char16_t* text, NorvikJsonCallback callback, std::uint64_t context) {
    const auto app = CNorvikApp::Current();
    if (!app) throw std::runtime_error("The library is on its way out.");
    const auto request = ReadSignRequest(text);
    if (!request) return Refuse(callback, context);
    const auto decision = app->Interface().AskSign(MakeQuestion(*request));
    if (!decision) return false;

    std::u16string result;
    DelayedProgress progress(app->Interface(), request->file);
    const bool done = SignEngine(
        request->file, decision->certificate, decision->authority ? &*decision->authority : nullptr, decision->detached,
        result, request->resultFolder, {.progress = [&](auto part, auto whole) { progress.Update(part, whole); }});
    toolkit::CkJsonObjectW answer;
    answer.put_EmitCompact(false);
    if (!done) {
        answer.UpdateString(u"ErrorMessage", u"Грешка при изпълнение на SignFile.");
        answer.UpdateBool(u"Error", true);
    }
    answer.UpdateString(u"SignFile", request->file.c_str());
    answer.UpdateString(u"ResultFile", result.c_str());
    answer.UpdateInt(u"SignMode", request->mode);
    callback(context, answer.Emit());
    return true;
}

}  // namespace

std::optional<SignRequest> ReadSignRequest(const char16_t* text) {
    toolkit::CkJsonObjectW json;
    if (!json.Load(text) || !json.HasMember(u"SignFile")) return std::nullopt;
    SignRequest request;
    request.file = TextOf(json, u"SignFile");
    request.resultFolder = json.HasMember(u"ResultFolder")
                               ? TextOf(json, u"ResultFolder")
                               : std::filesystem::path(request.file).parent_path().u16string();
    request.mode = json.HasMember(u"SignMode") ? json.IntOf(u"SignMode") : 0;
    request.filter = certificates::ReadFilter(json);
    request.authorities = ReadAuthorities(json);
    if (json.HasMember(u"StoreFilename")) {
        request.pfx = TextOf(json, u"StoreFilename");
        request.pfxPassword = certificates::SecretOf(json, u"StorePassword");
    }
    if (json.HasMember(u"StoreWindows")) request.store = TextOf(json, u"StoreWindows");
    return request;
}

bool SignByRequest(const char16_t* request, NorvikJsonCallback callback, std::uint64_t context) {
    if (callback == nullptr || request == nullptr || *request == 0) return false;
    return EntryFrame::Run(JsonFailure{callback, context}, [&] { return Run(request, callback, context); });
}

}  // namespace signing

#include "src/signing/SignExports.h"

#include <algorithm>
#include <string>
#include <string_view>

#include "src/EntryFrame.h"
#include "src/signing/Relay.h"
#include "src/signing/SignRequest.h"
#include "toolkit/CkJsonArrayW.h"
#include "toolkit/CkJsonObjectW.h"
#include "units/BlankText.h"

namespace signing {
namespace {

// A failure around the signing itself is told to the person as well as to the caller.
struct ToldFailure {
    NorvikJsonCallback callback;
    std::uint64_t context;
    bool operator()(std::u16string_view what) const {
        if (const auto app = CNorvikApp::Current())
            app->Interface().ShowMessage({std::u16string(what), u"Norvik грешка!", ui::Message::Icon::error});
        return JsonFailure{callback, context}(what);
    }
};

// A part between two separators counts also if it is empty; behind the last separator nothing does.
void AddThumbprints(toolkit::CkJsonObjectW& request, std::u16string_view list) {
    if (list.empty()) return;
    toolkit::CkJsonArrayW thumbprints;
    while (!list.empty()) {
        const auto end = std::min(list.find(u';'), list.size());
        thumbprints.AddStringAt(-1, std::u16string(list.substr(0, end)).c_str());
        list.remove_prefix(std::min(end + 1, list.size()));
    }
    request.AddArrayCopyAt(-1, u"ThumbprintInclude", thumbprints);
}

struct Outcome {
    bool done = false;
    char16_t* result = nullptr;
};

void TakeAnswer(std::uint64_t context, const char16_t* json) {
    auto& outcome = *reinterpret_cast<Outcome*>(context);
    toolkit::CkJsonObjectW answer;
    outcome.done = answer.Load(json) || !answer.BoolOf(u"Error");
    if (outcome.result == nullptr) return;
    const auto* const path = answer.StringOf(u"ResultFile");
    if (path == nullptr) {
        outcome.done = false;
        return;
    }
    const std::u16string_view text(path);
    *std::ranges::copy(text, outcome.result).out = 0;
}

}  // namespace

bool SignFileJson(const std::filesystem::path& library, const char16_t* request, NorvikJsonCallback callback,
                  std::uint64_t context) {
    if (callback == nullptr || request == nullptr || units::IsBlank(request)) return false;
    return EntryFrame::Run(ToldFailure{callback, context}, [&] {
        const auto launcher = FindLauncher(library);
        if (launcher.empty()) return SignByRequest(request, callback, context);
        SignThroughLauncher(launcher, request, callback, context);
        return false;
    });
}

bool SignFileByArguments(SignJson sign, const char16_t* file, int mode, char16_t* result, const char16_t* thumbprints,
                         const char16_t* /*tsa*/) {
    return EntryFrame::Run(LogFailure{}, [&] {
        if (file == nullptr || units::IsBlank(file) || !std::filesystem::exists(file)) return false;
        toolkit::CkJsonObjectW request;
        request.put_EmitCompact(false);
        request.UpdateString(u"SignFile", file);
        request.UpdateInt(u"SignMode", mode);
        AddThumbprints(request, thumbprints != nullptr ? thumbprints : std::u16string_view());
        Outcome outcome{.result = result};
        return sign(request.Emit(), TakeAnswer, reinterpret_cast<std::uint64_t>(&outcome)) && outcome.done;
    });
}

}  // namespace signing

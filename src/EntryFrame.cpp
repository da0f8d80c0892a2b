#include "src/EntryFrame.h"

#include "toolkit/CkJsonArrayW.h"
#include "toolkit/CkJsonObjectW.h"

namespace {

void FillError(toolkit::CkJsonObjectW& answer, std::u16string_view what) {
    answer.put_EmitCompact(false);
    answer.UpdateBool(u"Error", true);
    answer.UpdateString(u"ErrorMessage", std::u16string(what).c_str());
}

}  // namespace

bool JsonFailure::operator()(std::u16string_view what) const {
    if (callback == nullptr) return false;
    toolkit::CkJsonObjectW answer;
    FillError(answer, what);
    callback(context, answer.Emit());
    return false;
}

bool JsonArrayFailure::operator()(std::u16string_view what) const {
    if (callback == nullptr) return false;
    toolkit::CkJsonObjectW answer;
    FillError(answer, what);
    toolkit::CkJsonArrayW answers;
    answers.put_EmitCompact(compact);
    answers.AddObjectCopyAt(-1, answer);
    callback(context, answers.Emit());
    return false;
}

bool RecordFailure::operator()(std::u16string_view what) const {
    if (callback != nullptr)
        callback(context, true, std::u16string(what).c_str(), nullptr, nullptr, nullptr, nullptr, nullptr);
    return result;
}

bool RecordFlagFailure::operator()(std::u16string_view what) const {
    if (callback != nullptr)
        callback(context, true, std::u16string(what).c_str(), nullptr, nullptr, nullptr, nullptr, nullptr, false);
    return result;
}

void SignInfoFailure::operator()(std::u16string_view what) const {
    if (callback == nullptr) return;
    callback(context, 1, std::u16string(what).c_str(), 0, nullptr, 0, nullptr, nullptr, nullptr, nullptr, nullptr,
             nullptr);
}

int MessageBoxFailure::operator()(std::u16string_view what) const {
    if (const auto app = CNorvikApp::Current())
        app->Interface().ShowMessage({std::u16string(what), units::LoadStringW(288), ui::Message::Icon::error});
    return 1;
}

bool LogFailure::operator()(std::u16string_view) const {
    return false;  // the frame has written it to the log already
}

// Requests for a signature: whatever the text is, it is answered once with a failure, or a person is asked once, who
// cancels. Nothing is ever signed.

#include <cstdlib>
#include <string>

#include "platform/Text.h"
#include "src/Norvik.h"
#include "src/signing/SignRequest.h"
#include "toolkit/CkJsonObjectW.h"

namespace {

int asked = 0, answers = 0;

void Require(bool holds) {
    if (!holds) std::abort();
}

class Cancels : public ui::SilentInterface {
  public:
    std::optional<ui::SignDecision> AskSign(ui::SignQuestion question) override {
        ++asked;
        Require(!question.detached || !question.showDetachedBox);
        for (auto& certificate : question.certificates)
            Require(certificate.Context() && certificate.GetThumbprint().size() == 40);
        return std::nullopt;
    }
};

void Hear(std::uint64_t context, const char16_t* json) {
    ++answers;
    toolkit::CkJsonObjectW answer;
    Require(context == 7 && answer.Load(json) && answer.BoolOf(u"Error") && answer.HasMember(u"ErrorMessage"));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const auto application = CNorvikApp::Start(std::make_unique<Cancels>());
    asked = answers = 0;
    // A brace keeps the text from being taken for the name of a file.
    const auto request = u"{" + platform::ToWide(platform::AsText({data, size}));
    Require(!signing::SignByRequest(request.c_str(), Hear, 7));
    Require(asked + answers == 1);
    return 0;
}

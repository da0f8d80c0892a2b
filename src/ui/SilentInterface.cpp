#include "src/Norvik.h"
#include "src/ui/UserInterface.h"

namespace ui {

void SilentInterface::ShowMessage(const Message& message) {
    LogInfo(message.title.empty() ? message.text : message.title + u": " + message.text);
}

std::optional<platform::Secret> SilentInterface::AskText(const TextQuestion& question) {
    LogInfo(u"Nobody can be asked: " + question.title);
    return std::nullopt;
}

std::optional<platform::Secret> SilentInterface::AskPin(const platform::PinRequest& request) {
    LogInfo(u"Nobody can be asked for the PIN of " + request.subject);
    return std::nullopt;
}

}  // namespace ui

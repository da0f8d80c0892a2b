#include "src/ui/PinText.h"

#include "platform/Text.h"

namespace ui {

std::string PinQuestion(const platform::PinRequest& request) {
    using Kind = platform::PinRequest::Kind;
    std::string text;
    if (request.lastTry) {
        text += "Внимание: това е последният опит. Грешен ПИН ще блокира картата.\n";
    } else if (request.fewTriesLeft) {
        text += "Внимание: остават малко опити преди картата да се блокира.\n";
    }
    const auto subject = platform::OneLineUtf8(request.subject);
    switch (request.kind) {
        case Kind::token:
            return text + "ПИН за „" + subject + "“";
        case Kind::signature:
            return text + "ПИН за подписване с „" + subject + "“";
        case Kind::keyPassphrase:
            return text + "Парола за ключа на „" + subject + "“";
    }
    return text;
}

}  // namespace ui

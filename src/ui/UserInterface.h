#pragma once
// The one way from an operation to a person: messages and questions as plain data. Who answers is chosen once for a
// process: the windows for applications, the terminal for the command, a script in tests.

#include <optional>
#include <string>

#include "platform/Keys.h"

namespace ui {

struct Message {
    enum class Icon { none, information, warning, error };
    std::u16string text;
    std::u16string title{};  // empty: the application's name
    Icon icon = Icon::none;
};

struct TextQuestion {
    std::u16string title, prompt;
    bool hidden = false;  // a password: not shown as it is typed
};

// Answers come on the thread that asks. Every question has a silent answer, "cancelled".
class UserInterface : public platform::PinPrompt {
  public:
    // Returns when the person has seen it.
    virtual void ShowMessage(const Message& message) = 0;
    // UTF-8, possibly empty; empty optional: cancelled.
    virtual std::optional<platform::Secret> AskText(const TextQuestion& question) = 0;
};

// For a process without display and without an interface of its choice: a message goes to the log, a question is
// cancelled.
class SilentInterface : public UserInterface {
  public:
    void ShowMessage(const Message& message) override;
    std::optional<platform::Secret> AskText(const TextQuestion& question) override;
    std::optional<platform::Secret> AskPin(const platform::PinRequest& request) override;
};

}  // namespace ui

#pragma once
// A user who is asked for a PIN or passphrase in a test, and remembers the questions.

#include <deque>
#include <optional>
#include <string>
#include <vector>

#include "platform/Keys.h"

namespace tests {

class ScriptedPins : public platform::PinPrompt {
  public:
    // The answers in order; after the last one, and for an empty optional, the user gives up.
    explicit ScriptedPins(std::deque<std::optional<std::string>> answers) : answers_(std::move(answers)) {}
    std::optional<platform::Secret> AskPin(const platform::PinRequest& request) override {
        asked.push_back(request);
        if (answers_.empty()) return std::nullopt;
        const auto answer = answers_.front();
        answers_.pop_front();
        if (!answer) return std::nullopt;
        return platform::Secret(*answer);
    }
    std::vector<platform::PinRequest> asked;

  private:
    std::deque<std::optional<std::string>> answers_;
    platform::PinPromptScope scope_{*this};
};

}  // namespace tests

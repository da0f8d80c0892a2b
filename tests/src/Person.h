#pragma once
// The application object with a script in the place of the person, in a profile of its own.

#include <gmock/gmock.h>

#include "src/Norvik.h"
#include "tests/support/ScriptedInterface.h"
#include "tests/support/SoftToken.h"

namespace tests {

class PersonTest : public testing::Test {
  protected:
    PersonTest() {
        UseNoPkcs11Modules(profile_);
        Start();
    }
    ~PersonTest() override { CNorvikApp::Stop(); }
    std::shared_ptr<CNorvikApp> Start() { return CNorvikApp::Start(std::make_unique<ScriptedInterface>(script_)); }
    // Empty without a log.
    [[nodiscard]] std::string Log() const {
        const auto log = profile_.Folder() / "tmp/Norvik/Norvik.log";
        return std::filesystem::exists(log) ? ReadFile(log) : "";
    }

    Profile profile_;
    Script script_;
};

}  // namespace tests

#include <regex>

#include "tests/callers/SigningWindows.h"

// Each function as a script calls it, on a machine without a screen where nobody can be asked: what needs a window says
// so, the rest works, and the script lives on.
namespace {

using namespace tests;

class Scripts : public SigningDocuments {
  protected:
    // That a run of the script says what the data file of its name holds.
    void Expect(const std::vector<std::string>& arguments) const {
        const auto result =
            RunProgram(Script(arguments),
                       {.environment = {{"DISPLAY", {}}, {"WAYLAND_DISPLAY", {}}, {"PYTHONIOENCODING", "utf-8"}}});
        EXPECT_EQ(result.status, 3) << result.Summary();
        const auto told = std::regex_replace(result.output, std::regex(pki_.signer.Thumbprint()), "THUMBPRINT");
        EXPECT_EQ(told, ReadFile(NORVIK_SOURCE_DIR "/tests/data/callers/" + arguments[0] + ".txt"));
    }
};

TEST_F(Scripts, CallEachFunctionAboutCertificatesAndSigning) {
    Expect({"certificates", profile_.Write("one.pem", pki_.signer.Pem())});
}

TEST_F(Scripts, GetTheVerdictsOnSignedFiles) {
    pki_.InstallCrls(profile_);
    const auto attached = document_.string() + ".p7m", detached = document_.string() + ".p7s";
    SignByPeer(attached, "-nodetach");
    SignByPeer(detached);
    Expect({"verify", attached, detached, document_});
}

}  // namespace

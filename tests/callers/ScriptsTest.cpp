#include "tests/callers/SigningWindows.h"

// The functions as a script calls them, on a machine without a screen where nobody can be asked.
namespace {

using testing::EndsWith;

class Scripts : public tests::SigningDocuments {
  protected:
    [[nodiscard]] tests::ProcessResult Run(const std::string& script, const std::vector<std::string>& rest) const {
        std::vector<std::string> command{"python3", "-B", NORVIK_SOURCE_DIR "/tests/callers/programs/" + script,
                                         library_};
        command.insert(command.end(), rest.begin(), rest.end());
        return tests::RunProgram(
            command, {.environment = {{"DISPLAY", {}}, {"WAYLAND_DISPLAY", {}}, {"PYTHONIOENCODING", "utf-8"}}});
    }
};

// What needs a window says so, the rest works, and the script lives on.
TEST_F(Scripts, CallEachFunctionAboutCertificatesAndSigning) {
    const auto file = profile_.Write("one.pem", pki_.signer.Pem()).string();
    const auto result = Run("exports.py", {file});
    EXPECT_EQ(result.status, 3) << result.Summary();
    const std::string none = "Няма достъпен екран (DISPLAY, WAYLAND_DISPLAY): прозорецът не може да се покаже.";
    const std::string expected[] = {
        "NorvikInit\n  None",
        "NorvikCertInfo\n  record True None Иван Петров Norvik Test CA\n  True",
        "NorvikCertInfo2\n  record True None Иван Петров Norvik Test CA True\n  True",
        "NorvikCertInfoJson\n  list True Иван Петров None\n  True",
        "NorvikCertStoreInfo\n  error True NCryptOpenStorageProvider could not open storage! "
        "None None\n  None",
        "NorvikSelectCertificateJson\n  dict True Иван Петров None\n  True",
        "NorvikSelectCertificateJson\n  dict True None " + none + "\n  False",
        "NorvikSelectCertificateFromFileCB\n  record True None Иван Петров Norvik Test CA "
        "False\n  True",
        "NorvikSelectCertificateCB\n  error True " + none + " None None False\n  True",
        "NorvikSelectCertificateFromFile\n  1\n  False Иван Петров " + pki_.signer.Thumbprint(),
        "NorvikSelectCertificate\n  False",
        "NorvikCertSelectPrivate\n  None",
        "NorvikSignFileJson\n  dict True None " + none + "\n  False",
        "NorvikSignFile\n  False",
        "NorvikSignFileResult\n  False",
        "NorvikSignFileFilter\n  False",
        "NorvikSignFileFilterTSA\n  False",
        "NorvikShowAboutBox\n  None",
        "EPNorvikSignFileA\n  None",
        "EPNorvikShowAboutBoxW\n  None"};
    std::string all;
    for (const auto& call : expected)
        all += call + "\n";
    EXPECT_EQ(result.output, all);
}

TEST_F(Scripts, GetTheVerdictsOnSignedFiles) {
    pki_.InstallCrls(profile_);
    const auto attached = document_.string() + ".p7m", detached = document_.string() + ".p7s";
    SignByPeer(attached, {"-nodetach"});
    SignByPeer(detached);
    const auto result = Run("verify.py", {attached, detached, document_});
    EXPECT_EQ(result.status, 0) << result.Summary();
    EXPECT_THAT(result.output, testing::StartsWith("json True ok ok Иван Петров\n"
                                                   "done True\n"
                                                   "info True 0 None 0 0 Подписът е валиден Иван Петров 4\n"
                                                   "info True 0 None 0 0 Подписът е валиден Иван Петров 4\n"
                                                   "error True Msg: "));
    EXPECT_THAT(result.output, EndsWith("detached True False False\n"
                                        "extracted 1\n"
                                        "content words\n"
                                        "S1=Валиден\n"
                                        "converted True\n"
                                        "shown 1\n"
                                        "alive\n"));
}

}  // namespace

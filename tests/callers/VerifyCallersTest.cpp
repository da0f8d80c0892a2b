#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/support/Pki.h"
#include "tests/support/Process.h"

namespace {

TEST(VerifyCallers, AScriptGetsTheVerdictsThroughTheCInterface) {
    const tests::Profile profile;
    const tests::StandardPki pki;
    pki.Install(profile);
    pki.InstallCrls(profile);
    const auto signer = profile.Write("s.pem", pki.signer.Pem()), key = profile.Write("s.key", pki.signer.KeyPem()),
               others = profile.Write("ca.pem", pki.ca.Pem()), data = profile.Write("words", "думи");
    const auto attached = profile.Folder() / "data.txt.p7m", detached = profile.Folder() / "data.txt.p7s";
    for (const auto& file : {attached, detached}) {
        std::vector<std::string> sign{"openssl", "cms", "-sign",   "-binary", "-outform", "DER", "-in",       data,
                                      "-out",    file,  "-signer", signer,    "-inkey",   key,   "-certfile", others};
        if (file == attached) sign.emplace_back("-nodetach");
        ASSERT_EQ(tests::RunProgram(sign).status, 0);
    }
    const auto result =
        tests::RunProgram({"python3", NORVIK_SOURCE_DIR "/tests/callers/programs/verify.py",
                           NORVIK_BINARY_DIR "/lib/libNorvik.so", attached, detached, data},
                          {.environment = {{"DISPLAY", {}}, {"WAYLAND_DISPLAY", {}}, {"PYTHONIOENCODING", "utf-8"}}});
    EXPECT_EQ(result.status, 0) << result.Summary();
    EXPECT_THAT(result.output, testing::StartsWith("json True ok ok Иван Петров\n"
                                                   "done True\n"
                                                   "info True 0 None 0 0 Подписът е валиден Иван Петров 4\n"
                                                   "info True 0 None 0 0 Подписът е валиден Иван Петров 4\n"
                                                   "error True Msg: "));
    EXPECT_THAT(result.output, testing::EndsWith("detached True False False\n"
                                                 "extracted 1\n"
                                                 "content думи\n"
                                                 "S1=Валиден\n"
                                                 "converted True\n"
                                                 "shown 1\n"
                                                 "alive\n"));
}

}  // namespace

// File names as the host has them: bytes that need not be text.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/support/Pki.h"
#include "tests/support/Process.h"
#include "tests/support/Profile.h"

namespace {

namespace fs = std::filesystem;

TEST(FileNames, ANameThatIsNoTextNeverGetsAnotherFileSigned) {
    const tests::Profile profile;
    tests::StandardPki().Install(profile);
    // The second is what the first becomes when its bad byte is replaced.
    const std::string wanted = "act\xFF.txt", other = "act\uFFFD.txt";
    for (const auto& name : {wanted, other, std::string("act\n.txt")})
        profile.Write("documents/" + name, "words");
    const fs::path documents = profile.Folder() / "documents";
    const auto sign = [&](std::vector<std::string> arguments) {
        arguments.insert(arguments.begin(), {NORVIK_BINARY_DIR "/bin/norvik", "sign", "--no-tsa"});
        return tests::RunProgram(arguments, {.folder = documents});
    };
    const auto both = sign({wanted, "act\n.txt"});
    EXPECT_EQ(both.status, 1);
    EXPECT_THAT(both.errors, testing::HasSubstr(wanted + ": името на файла не е в UTF-8"));
    EXPECT_EQ(sign({"--output-folder", "out\xFF", other}).status, 2);
    EXPECT_TRUE(fs::exists(documents / "act\n.txt.p7m"));
    for (const auto& name : {other + ".p7m", std::string("out\xFF"), std::string("out\uFFFD")})
        EXPECT_FALSE(fs::exists(documents / name)) << name;
}

}  // namespace

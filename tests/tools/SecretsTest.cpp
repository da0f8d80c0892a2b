// A secret goes where it is used and nowhere else.

#include <sys/stat.h>
#include <unistd.h>

#include <fstream>

#include "tests/support/SoftToken.h"
#include "tests/support/TsaServer.h"
#include "tests/tools/CommandTest.h"

namespace {

namespace fs = std::filesystem;
using namespace tests;
using testing::HasSubstr;
using testing::Not;

std::string ReadProcess(const fs::path& file) {
    std::ifstream stream(file, std::ios::binary);
    return {std::istreambuf_iterator<char>(stream), {}};
}

// Command line and environment of every process that descends from this one's `norvik`.
std::string WhatOthersSee() {
    std::string seen;
    for (const auto& entry : fs::directory_iterator("/proc")) {
        std::error_code error;
        if (fs::read_symlink(entry.path() / "exe", error).filename() != "norvik") continue;
        seen += ReadProcess(entry.path() / "cmdline") + ReadProcess(entry.path() / "environ");
    }
    return seen;
}

class SecretsTest : public CommandTest {
  protected:
    static std::string Utf16(const std::string& ascii) {
        std::string wide;
        for (const char c : ascii)
            wide += {c, '\0'};
        return wide;
    }
    // Nothing that is left of the run holds the secret, in UTF-8 or in UTF-16.
    void ExpectNowhere(const std::string& secret, const std::string& written) const {
        EXPECT_THAT(written, Not(HasSubstr(secret)));
        for (const auto& entry : fs::recursive_directory_iterator(profile_.Folder())) {
            if (!entry.is_regular_file() || entry.path().string().find("/softhsm") != std::string::npos) continue;
            const auto content = ReadFile(entry.path());
            EXPECT_THAT(content, Not(HasSubstr(secret))) << entry.path();
            EXPECT_THAT(content, Not(HasSubstr(Utf16(secret)))) << entry.path();
        }
    }
};

TEST_F(SecretsTest, AreFoundNowhereAfterSigningWithATimestamp) {
    InstallCertificate(profile_, "CA", pki_.ca);
    Document("a.txt");
    Document("good.p12", platform::AsText(MakePfx({{pki_.signer}, "pfx-Secret-7351"})));
    std::string seen;
    const TsaServer authority(pki_.tsa, {pki_.ca});
    const HttpServer server([&](const HttpRequest& request) {
        seen += WhatOthersSee();
        const auto reply = authority.Reply(
            {reinterpret_cast<const std::uint8_t*>(request.body.data()), request.body.size()}, TsaBehaviour{});
        return HttpAnswer{.contentType = "application/timestamp-reply", .body = std::string(platform::AsText(reply))};
    });
    std::string written;
    const auto run = [&](const std::vector<std::string>& arguments, const std::string& input, int status) {
        const auto result = Run(arguments, input);
        EXPECT_EQ(result.status, status) << result.Summary();
        written += result.output + result.errors;
    };
    run({"store", "import", "good.p12", "--password-stdin", "--protect"}, "wrong-Secret-7352\nx\n", 1);
    run({"store", "import", "good.p12", "--password-stdin", "--protect"}, "pfx-Secret-7351\nkey-Secret-7353\n", 0);
    run({"tsa", "add", "T", server.Url(), "--user", "ivan", "--password-stdin", "--default"}, "tsa-Secret-7354\n", 0);
    run({"tsa", "list"}, "", 0);
    run({"sign", "a.txt", "--pin-stdin"}, "bad-Secret-7355\n", 1);
    run({"sign", "a.txt", "--pin-stdin"}, "key-Secret-7353\n", 0);
    ASSERT_EQ(server.Requests().size(), 1u);
    EXPECT_EQ(server.Requests().front().Credentials(), "ivan:tsa-Secret-7354");
    EXPECT_THAT(seen, HasSubstr("--pin-stdin")) << "the running command was not looked at";
    for (const auto* secret :
         {"pfx-Secret-7351", "wrong-Secret-7352", "key-Secret-7353", "tsa-Secret-7354", "bad-Secret-7355"})
        ExpectNowhere(secret, written + seen);
    struct stat registry {};
    ASSERT_EQ(stat((profile_.Folder() / "config/norvik/registry.db").c_str(), &registry), 0);
    EXPECT_EQ(registry.st_mode & 0777, 0600u);
}

TEST_F(SecretsTest, OfATokenIsFoundNowhere) {
    if (!SoftToken::Available()) GTEST_SKIP() << "SoftHSM2 or pkcs11-tool is not installed";
    SoftToken token(profile_, "Card", "90817263");
    token.Put(pki_.signer, "01");
    Document("a.txt");
    const auto wrong = Run({"sign", "a.txt", "--pin-stdin"}, "55443322\n");
    EXPECT_EQ(wrong.status, 1);
    const auto right = Run({"sign", "a.txt", "--pin-stdin"}, "90817263\n");
    EXPECT_EQ(right.status, 0) << right.Summary();
    for (const auto* secret : {"90817263", "55443322"})
        ExpectNowhere(secret, wrong.Summary() + right.Summary());
}

}  // namespace

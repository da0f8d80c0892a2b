// A secret goes where it is used and nowhere else.

#include <fstream>

#include "tests/support/SoftToken.h"
#include "tests/support/TsaServer.h"
#include "tests/tools/CommandTest.h"

namespace {

using namespace tests;

// Command line and environment of every running `norvik`.
std::string WhatOthersSee() {
    std::string seen;
    for (const auto& entry : fs::directory_iterator("/proc")) {
        std::error_code error;
        if (fs::read_symlink(entry.path() / "exe", error).filename() != "norvik") continue;
        for (const auto* const name : {"cmdline", "environ"}) {
            std::ifstream stream(entry.path() / name, std::ios::binary);
            seen.append(std::istreambuf_iterator<char>(stream), {});
        }
    }
    return seen;
}

class SecretsTest : public CommandTest {
  protected:
    void RunAndKeep(const std::string& arguments, const std::string& input, int status) {
        const auto result = Run(arguments, input);
        EXPECT_EQ(result.status, status) << arguments << result.Summary();
        written_ += result.output + result.errors;
    }
    // Nothing that is left of the runs holds a secret, in UTF-8 or in UTF-16.
    void ExpectNowhere(const std::vector<std::string>& secrets) const {
        for (const auto& secret : secrets) {
            EXPECT_THAT(written_, Not(HasSubstr(secret)));
            std::string wide;
            for (const char c : secret)
                wide += {c, '\0'};
            for (const auto& entry : fs::recursive_directory_iterator(profile_.Folder())) {
                if (!entry.is_regular_file() || entry.path().string().find("/softhsm") != std::string::npos) continue;
                EXPECT_THAT(ReadFile(entry.path()), AllOf(Not(HasSubstr(secret)), Not(HasSubstr(wide))))
                    << entry.path();
            }
        }
    }
    std::string written_;
};

TEST_F(SecretsTest, AreFoundNowhereAfterSigningWithATimestamp) {
    InstallCertificate(profile_, "CA", pki_.ca);
    Document("a.txt");
    Document("good.p12", MakePfx({{pki_.signer}, "pfx-Secret-7351"}));
    std::string seen;
    const TsaServer authority(pki_.tsa, {pki_.ca});
    const HttpServer server([&](const HttpRequest& request) {
        seen += WhatOthersSee();
        const auto reply = authority.Reply(platform::AsBytes(request.body), TsaBehaviour{});
        return HttpAnswer{.contentType = "application/timestamp-reply", .body = std::string(platform::AsText(reply))};
    });
    RunAndKeep("store import good.p12 --password-stdin --protect", "wrong-Secret-7352\nx\n", 1);
    RunAndKeep("store import good.p12 --password-stdin --protect", "pfx-Secret-7351\nkey-Secret-7353\n", 0);
    RunAndKeep("tsa add T " + server.Url() + " --user ivan --password-stdin --default", "tsa-Secret-7354\n", 0);
    RunAndKeep("tsa list", "", 0);
    RunAndKeep("sign a.txt --pin-stdin", "bad-Secret-7355\n", 1);
    RunAndKeep("sign a.txt --pin-stdin", "key-Secret-7353\n", 0);
    ASSERT_EQ(server.Requests().size(), 1u);
    EXPECT_EQ(server.Requests().front().Credentials(), "ivan:tsa-Secret-7354");
    EXPECT_THAT(seen, HasSubstr("--pin-stdin")) << "the running command was not looked at";
    written_ += seen;
    ExpectNowhere({"pfx-Secret-7351", "wrong-Secret-7352", "key-Secret-7353", "tsa-Secret-7354", "bad-Secret-7355"});
    EXPECT_EQ(fs::status(profile_.Folder() / "config/norvik/registry.db").permissions(), fs::perms(0600));
}

TEST_F(SecretsTest, OfATokenIsFoundNowhere) {
    if (!SoftToken::Available()) GTEST_SKIP() << "SoftHSM2 or pkcs11-tool is not installed";
    SoftToken token(profile_, "Card", "90817263");
    token.Put(pki_.signer, "01");
    Document("a.txt");
    RunAndKeep("sign a.txt --pin-stdin", "55443322\n", 1);
    RunAndKeep("sign a.txt --pin-stdin", "90817263\n", 0);
    ExpectNowhere({"90817263", "55443322"});
}

}  // namespace

// Signing with a key that stays on a token.

#include "tests/support/KeyUse.h"
#include "tests/support/SoftToken.h"
#include "tests/toolkit/SignFixture.h"

namespace {

using namespace tests;
using testing::HasSubstr;
using testing::Not;

class SignTokenTest : public SignFixture {
  protected:
    void SetUp() override {
        if (!SoftToken::Available()) GTEST_SKIP() << "SoftHSM2 or pkcs11-tool is not installed";
        // The certificate lies on the token and, as a copy for others to find, in a folder without the key.
        std::filesystem::remove_all(profile_.Stores() / "MY");
        InstallCertificate(profile_, "ADDRESSBOOK", pki_.signer);
        token_.emplace(profile_);
        token_->Put(pki_.signer, "01");
        input_ = profile_.Write("document.bin", "content");
    }
    std::optional<SoftToken> token_;
    std::filesystem::path input_;
};

TEST_F(SignTokenTest, SignatureIsMadeOnTheToken) {
    const ScriptedPins user({token_->Pin()});
    ASSERT_TRUE(TrySign(input_, Scratch("o"))) << log_;
    EXPECT_THAT(log_, HasSubstr("The private key is not exportable, will use MS CNG..."));
    EXPECT_EQ(user.asked.size(), 1U);
    toolkit::CkCrypt2W ours;
    EXPECT_TRUE(ours.Implementation().VerifyFile(Scratch("o"))) << Narrow(ours.lastErrorText());
}

TEST_F(SignTokenTest, PinThatIsWrongOrRefusedLeavesNoFileAndNoTraceOfIt) {
    for (const auto& text : {std::optional<std::string>("135791"), std::optional<std::string>()}) {
        const ScriptedPins user({text});
        EXPECT_FALSE(TrySign(input_, Scratch("o")));
        EXPECT_THAT(log_, HasSubstr("Failed to RSA sign digest of authenticated attributes using CNG."));
        EXPECT_THAT(log_, HasSubstr(text ? "0x8010006b" : "0x8010006e"));
        EXPECT_THAT(log_, Not(HasSubstr("135791")));
        EXPECT_EQ(user.asked.size(), 1U);
        EXPECT_FALSE(std::filesystem::exists(Scratch("o")));
    }
}

}  // namespace

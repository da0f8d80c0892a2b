// Our signatures, judged by other makers' programs.

#include "tests/support/GpgSm.h"
#include "tests/toolkit/PeerMessages.h"
#include "tests/toolkit/SignFixture.h"

namespace {

using namespace tests;
using namespace std::string_literals;

// KEY_HASH
class InteropTest : public SignFixture, public testing::WithParamInterface<std::string> {
  protected:
    InteropTest() : SignFixture(testing_support::KeyTypeNamed(GetParam().substr(0, GetParam().find('_')))) {
        if (GpgSm::Available()) keyring_.emplace(profile_, pki_.root);
    }
    const std::string key_ = GetParam().substr(0, GetParam().find('_'));
    const std::string hash_ = GetParam().substr(GetParam().find('_') + 1);
    std::optional<GpgSm> keyring_;
};

TEST_P(InteropTest, AttachedAndDetachedAreAccepted) {
    const std::string content = "Договор\r\nсъс съдържание\n\0 и край"s;
    for (const bool attached : {true, false}) {
        for (const bool derOrder : {false, true}) {
            SCOPED_TRACE(testing::Message() << "attached " << attached << ", DER order " << derOrder);
            const auto message = Sign(content, {.attached = attached, .derOrder = derOrder, .hash = hash_});
            const auto data = attached ? std::filesystem::path() : Scratch("document.bin");
            EXPECT_EQ(Verdict("ours", message, data), "");
            EXPECT_EQ(Verdict("openssl", message, data), "");
            EXPECT_EQ(ReadFile(Scratch("content.out")), content);
            if (keyring_) {
                // It wants the digest to be as long as the curve's numbers, and knows no DSA.
                const bool takesIt = key_.starts_with("rsa") || key_.substr(1) == hash_.substr(3);
                EXPECT_EQ(Verdict("gpgsm", message, data).empty(), takesIt);
            }
            // It hashes the attributes as if they were sorted, which ours are not when signingTime is among them.
            if (HasProgram("certtool")) {
                EXPECT_EQ(Verdict("certtool", message, data).empty(), derOrder);
            }
        }
    }
    const auto message = Sign("some content", {.hash = hash_});
    std::string bytes = ReadFile(message);
    bytes[bytes.find("some content")] ^= 1;
    profile_.Write(message.filename(), bytes);
    EXPECT_NE(Verdict("openssl", message), "") << "tampered with";
}

INSTANTIATE_TEST_SUITE_P(Keys, InteropTest,
                         testing::Values("rsa2048_sha256", "rsa2048_sha1", "rsa3072_sha256", "rsa3072_sha1",
                                         "rsa3072_sha512", "rsa4096_sha1", "rsa4096_sha256", "p256_sha256", "p256_sha1",
                                         "p384_sha384", "p384_sha256", "dsa2048_sha256", "dsa2048_sha1"),
                         [](const auto& info) { return info.param; });

}  // namespace

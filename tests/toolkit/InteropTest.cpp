// Our signatures, judged by other makers' programs.

#include "tests/support/GpgSm.h"
#include "tests/support/Process.h"
#include "tests/toolkit/SignFixture.h"

namespace {

using namespace tests;
using namespace std::string_literals;

struct Peering {
    const char* name;
    KeyType key;
    const char* hash;
    bool gpgsm = true;  // it wants the digest to be as long as the curve's numbers, and knows no DSA
};
void PrintTo(const Peering& peering, std::ostream* out) {
    *out << peering.name << " " << peering.hash;
}

class InteropTest : public SignFixture, public testing::WithParamInterface<Peering> {
  protected:
    InteropTest() : SignFixture(GetParam().key) {
        profile_.Write("root.pem", pki_.root.Pem());
        if (GpgSm::Available()) keyring_.emplace(profile_, pki_.root);
    }
    // Whether a program accepts it; "data" stands for the content beside a detached one.
    [[nodiscard]] ProcessResult Ask(std::vector<std::string> command, bool attached,
                                    const std::vector<std::string>& data) const {
        if (!attached) command.insert(command.end(), data.begin(), data.end());
        return RunProgram(command, {.folder = profile_.Folder()});
    }
    [[nodiscard]] ProcessResult OpenSsl(const std::filesystem::path& message, bool attached) const {
        return Ask({"openssl", "cms", "-verify", "-binary", "-inform", "DER", "-in", message, "-CAfile", "root.pem",
                    "-purpose", "any", "-out", "content.out"},
                   attached, {"-content", "document.bin"});
    }
    std::optional<GpgSm> keyring_;
};

TEST_P(InteropTest, AttachedAndDetachedAreAccepted) {
    const std::string content = "Договор\r\nсъс съдържание\n\0 и край"s;
    for (const bool attached : {true, false}) {
        for (const bool derOrder : {false, true}) {
            SCOPED_TRACE(testing::Message() << "attached " << attached << ", DER order " << derOrder);
            const auto message = Sign(content, {.attached = attached, .derOrder = derOrder, .hash = GetParam().hash});
            toolkit::CkCrypt2W ours;
            EXPECT_TRUE(attached ? ours.Implementation().VerifyFile(message)
                                 : ours.Implementation().VerifyDetachedFile(Scratch("document.bin"), message))
                << Narrow(ours.lastErrorText());
            const auto openssl = OpenSsl(message, attached);
            EXPECT_EQ(openssl.status, 0) << openssl.Summary();
            EXPECT_EQ(ReadFile(Scratch("content.out")), content);
            if (keyring_) {
                const auto gpgsm = Ask({"gpgsm", "--batch", "--verify", message}, attached, {"document.bin"});
                EXPECT_EQ(gpgsm.status == 0, GetParam().gpgsm) << gpgsm.Summary();
            }
            if (HasProgram("certtool")) {
                // It hashes the attributes as if they were sorted, which ours are not when signingTime is among them.
                const auto certtool = Ask(
                    {"certtool", "--p7-verify", "--inder", "--infile", message, "--load-ca-certificate", "root.pem"},
                    attached, {"--load-data", "document.bin"});
                EXPECT_EQ(certtool.status == 0, derOrder) << certtool.Summary();
            }
        }
    }
    const auto message = Sign("some content", {.hash = GetParam().hash});
    std::string bytes = ReadFile(message);
    bytes[bytes.find("some content")] ^= 1;
    profile_.Write(message.filename(), bytes);
    EXPECT_NE(OpenSsl(message, true).status, 0) << "tampered with";
}

INSTANTIATE_TEST_SUITE_P(
    Keys, InteropTest,
    testing::Values(Peering{"rsa2048", KeyType::rsa2048, "sha256"}, Peering{"rsa2048", KeyType::rsa2048, "sha1"},
                    Peering{"rsa3072", KeyType::rsa3072, "sha256"}, Peering{"rsa3072", KeyType::rsa3072, "sha1"},
                    Peering{"rsa3072", KeyType::rsa3072, "sha512"}, Peering{"rsa4096", KeyType::rsa4096, "sha1"},
                    Peering{"rsa4096", KeyType::rsa4096, "sha256"}, Peering{"p256", KeyType::p256, "sha256"},
                    Peering{"p256", KeyType::p256, "sha1", false}, Peering{"p384", KeyType::p384, "sha384"},
                    Peering{"p384", KeyType::p384, "sha256", false},
                    Peering{"dsa2048", KeyType::dsa2048, "sha256", false},
                    Peering{"dsa2048", KeyType::dsa2048, "sha1", false}),
    [](const auto& info) { return std::string(info.param.name).append("_").append(info.param.hash); });

}  // namespace

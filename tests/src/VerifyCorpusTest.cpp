// Messages of other makers: the host's message service and the toolkit, each by its own way, say the same of them.

#include <fstream>
#include <sstream>

#include "tests/src/VerificationTest.h"
#include "tests/support/Corpora.h"
#include "toolkit/ClsCrypt2.h"
#include "toolkit/cms/Findings.h"
#include "toolkit/cms/TextMessage.h"

namespace {

namespace fs = std::filesystem;
using namespace tests;

class VerifyOthers : public VerificationTest {
  protected:
    // Empty: the content is in the message.
    static fs::path DataOf(const std::string& line) {
        std::vector<std::string> fields;
        std::istringstream stream(line);
        for (std::string field; std::getline(stream, field, '\t');)
            fields.push_back(field);
        fields.resize(14);
        return fields[5] == "detached" && !fields[12].empty() ? Corpus("cms") / fields[12] : fs::path();
    }
    static bool IsText(const fs::path& file) {
        platform::FileSource source(*platform::InputFile::Open(file));
        return toolkit::cms::LooksLikeText(source);
    }
};

TEST_F(VerifyOthers, GivesTheVerdictOfBothEngines) {
    std::ifstream index(Corpus("cms") / "INDEX.tsv");
    if (!index) GTEST_SKIP() << "no corpus beside the source tree";
    std::string line;
    std::getline(index, line);
    int good = 0, bad = 0, refused = 0;
    while (std::getline(index, line)) {
        const auto file = Corpus("cms") / line.substr(0, line.find('\t'));
        SCOPED_TRACE(file.filename());
        if (!fs::exists(file) || IsText(file)) continue;
        const auto data = DataOf(line);
        toolkit::ClsCrypt2 toolkitAlone;
        const bool valid = data.empty() ? toolkitAlone.VerifyFile(file) : toolkitAlone.VerifyDetachedFile(data, file);
        verification::SignatureEntries entries;
        try {
            verification::VerifySignatureFile(file, data, entries);
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

}  // namespace

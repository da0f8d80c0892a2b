// Gives every seed to its target, so that an input that once broke a parser is tried in each test run.

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <ostream>
#include <vector>

#include "FuzzTargets.h"
#include "tests/support/Profile.h"

// For the names under which a test runner lists the cases: without it they would hold addresses.
void PrintTo(const FuzzTarget& target, std::ostream* out) {
    *out << target.name;
}

namespace {

namespace fs = std::filesystem;

const fs::path kSource = NORVIK_SOURCE_DIR;

std::vector<fs::path> FoldersOf(const std::string& target) {
    std::vector<fs::path> folders{kSource / "fuzz/seeds" / target};
    std::ifstream list(kSource / "fuzz/corpora.txt");
    for (std::string name, folder; list >> name && std::getline(list >> std::ws, folder);) {
        if (name == target) folders.push_back(kSource / "../shared/corpora/fuzz" / folder);
    }
    return folders;
}

// A test's process may read a file that a seed names, and a key file may lie where the target looks: nothing of the
// person who runs it.
class FuzzSeeds : public testing::TestWithParam<FuzzTarget> {
    tests::Profile profile_;
};

TEST_P(FuzzSeeds, AreTakenWithoutHarm) {
    int taken = 0;
    const auto folders = FoldersOf(GetParam().name);
    for (const fs::path& folder : folders) {
        if (!fs::is_directory(folder)) continue;
        for (const auto& entry : fs::directory_iterator(folder)) {
            if (!entry.is_regular_file()) continue;
            SCOPED_TRACE(entry.path());
            const std::string seed = tests::ReadFile(entry.path());
            EXPECT_EQ(GetParam().run(reinterpret_cast<const std::uint8_t*>(seed.data()), seed.size()), 0);
            ++taken;
        }
    }
    EXPECT_EQ(GetParam().run(nullptr, 0), 0);
    if (taken == 0 && folders.size() > 1) GTEST_SKIP() << "the collection of malformed files is not here";
    EXPECT_GT(taken, 0) << "a target without seeds starts from nothing";
}

INSTANTIATE_TEST_SUITE_P(Targets, FuzzSeeds, testing::ValuesIn(kFuzzTargets),
                         [](const auto& info) { return std::string(info.param.name); });

}  // namespace

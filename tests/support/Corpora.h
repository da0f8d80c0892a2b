#pragma once
// Files of other makers beside the checkout, which are no part of the project. A test without them skips and says so.

#include <filesystem>
#include <string>
#include <vector>

namespace tests {

// A folder of the collections: $NORVIK_CORPORA, else those beside the checkout. Need not exist.
std::filesystem::path Corpus(const std::string& folder);

// The lines of a file of columns between tabs, each at least as wide as the first line; empty without the file.
std::vector<std::vector<std::string>> ReadTable(const std::filesystem::path& file);

// The same below the head of a table in tests/data; throws std::out_of_range without the file.
std::vector<std::vector<std::string>> TestData(const std::string& name);

// The PFX files with the password that opens them; those whose password nobody knows are left out.
struct PfxSample {
    std::filesystem::path file;
    std::string password;
};
std::vector<PfxSample> PfxCorpus();

}  // namespace tests

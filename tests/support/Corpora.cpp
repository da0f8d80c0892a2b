#include "tests/support/Corpora.h"

#include <cstdlib>
#include <fstream>
#include <sstream>
#include <stdexcept>

namespace tests {

std::filesystem::path Corpus(const std::string& folder) {
    const char* named = std::getenv("NORVIK_CORPORA");
    const std::filesystem::path base = named != nullptr
                                           ? std::filesystem::path(named)
                                           : std::filesystem::path(NORVIK_SOURCE_DIR) / "../shared/corpora";
    return base / folder;
}

std::vector<std::vector<std::string>> ReadTable(const std::filesystem::path& file) {
    std::vector<std::vector<std::string>> rows;
    std::ifstream lines(file);
    for (std::string line; std::getline(lines, line);) {
        auto& row = rows.emplace_back();
        std::istringstream fields(line);
        for (std::string field; std::getline(fields, field, '\t');)
            row.push_back(field);
        row.resize(std::max(row.size(), rows.front().size()));
    }
    return rows;
}

std::vector<std::vector<std::string>> TestData(const std::string& name) {
    auto rows = ReadTable(std::filesystem::path(NORVIK_SOURCE_DIR) / "tests/data" / name);
    if (rows.size() < 2) throw std::out_of_range("no rows in tests/data/" + name);
    rows.erase(rows.begin());
    return rows;
}

std::vector<PfxSample> PfxCorpus() {
    std::vector<PfxSample> samples;
    for (const auto& row : ReadTable(Corpus("pkcs12") / "INDEX.tsv"))
        if (row[4].starts_with("pass:")) samples.push_back({Corpus("pkcs12") / row[0], row[4].substr(5)});
    return samples;
}

}  // namespace tests

#include "tests/support/Corpora.h"

#include <cstdlib>
#include <fstream>
#include <sstream>

namespace tests {

std::filesystem::path Corpus(const std::string& folder) {
    const char* named = std::getenv("NORVIK_CORPORA");
    const std::filesystem::path base = named != nullptr
                                           ? std::filesystem::path(named)
                                           : std::filesystem::path(NORVIK_SOURCE_DIR) / "../shared/corpora";
    return base / folder;
}

std::vector<PfxSample> PfxCorpus() {
    std::vector<PfxSample> samples;
    std::ifstream index(Corpus("pkcs12") / "INDEX.tsv");
    std::string line;
    std::getline(index, line);  // the headings
    while (std::getline(index, line)) {
        std::istringstream fields(line);
        std::string name, skipped, password;
        std::getline(fields, name, '\t');
        for (int i = 0; i < 3; ++i)
            std::getline(fields, skipped, '\t');
        std::getline(fields, password, '\t');
        if (password.starts_with("pass:")) samples.push_back({Corpus("pkcs12") / name, password.substr(5)});
    }
    return samples;
}

}  // namespace tests

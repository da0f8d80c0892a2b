#pragma once
// The words that people read for each status word, letter by letter (tests/data/status.tsv).

#include <cstdint>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

namespace tests {

struct StatusRow {
    std::uint32_t status = 0;
    std::string symbol, verdict, text;  // verdict: "valid", "invalid" or "unverified"; text: UTF-8
};

inline std::vector<StatusRow> StatusRows() {
    std::vector<StatusRow> rows;
    std::ifstream file(NORVIK_SOURCE_DIR "/tests/data/status.tsv");
    for (std::string line; std::getline(file, line);) {
        std::istringstream fields(line);
        std::string number;
        StatusRow row;
        std::getline(fields, number, '\t');
        std::getline(fields, row.symbol, '\t');
        std::getline(fields, row.verdict, '\t');
        std::getline(fields, row.text);
        row.status = static_cast<std::uint32_t>(std::stoul(number, nullptr, 16));
        rows.push_back(std::move(row));
    }
    return rows;
}

}  // namespace tests

#pragma once
// The words that people read for each status word, letter by letter (tests/data/status.tsv).

#include <cstdint>

#include "tests/support/Corpora.h"

namespace tests {

struct StatusRow {
    std::uint32_t status = 0;
    std::string symbol, verdict, text;  // verdict: "valid", "invalid" or "unverified"; text: UTF-8
};

inline std::vector<StatusRow> StatusRows() {
    std::vector<StatusRow> rows;
    for (const auto& row : ReadTable(NORVIK_SOURCE_DIR "/tests/data/status.tsv"))
        rows.push_back({static_cast<std::uint32_t>(std::stoul(row[0], nullptr, 16)), row[1], row[2], row[3]});
    return rows;
}

}  // namespace tests

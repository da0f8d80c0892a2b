#pragma once
// Runs another program: the peers that judge our output, and our own commands.

#include <chrono>
#include <filesystem>
#include <map>
#include <optional>
#include <vector>

namespace tests {

struct ProcessOptions {
    std::string input = {};                                              // standard input
    std::map<std::string, std::optional<std::string>> environment = {};  // added to ours; no value: removed
    std::filesystem::path folder = {};                                   // working folder; empty: ours
    std::chrono::milliseconds timeout = std::chrono::seconds(60);
};

struct ProcessResult {
    int status = -1;  // exit status; -1 when a signal or the time-out ended it
    int signal = 0;   // the signal that ended it
    bool timedOut = false;
    std::string output;  // standard output
    std::string errors;  // standard error

    // For a failed expectation: how it ended and what it wrote.
    [[nodiscard]] std::string Summary() const;
};

// The first argument is the program, looked up in PATH. Waits for its end; kills it (and what it started) after the
// time-out. Throws std::runtime_error if it cannot be started.
ProcessResult RunProgram(const std::vector<std::string>& command, const ProcessOptions& options = {});

// Whether PATH has the program; a test without its peer skips.
bool HasProgram(const std::string& name);

}  // namespace tests

#pragma once
// The labelled blocks of a PEM file with any text around them, as test vectors have it.

#include <filesystem>
#include <string>
#include <vector>

#include "platform/Types.h"

namespace tests {

struct PemBlock {
    std::string label;
    platform::Bytes der;
};
// In the file's order; empty if the file holds none or cannot be read.
std::vector<PemBlock> ReadPemFile(const std::filesystem::path& path);

}  // namespace tests

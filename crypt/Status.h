#pragma once
// What a status word of the chain, message and revocation services means to a person.

#include <cstdint>
#include <string>

namespace tessaly {

struct CertStatusResult {
    std::u16string text;
    std::uint32_t status = 0;
};

// A chain that could not be built at all.
constexpr std::uint32_t kStatusNotBuilt = 0xFFFFFFFF;

// The Bulgarian text of a status word (three rows are in English, as their readers know them); 0 is a valid
// certificate, a word outside the table an unknown error.
std::u16string StatusText(std::uint32_t status);

enum class StatusClass { valid = 0, invalid = 1, unverified = 2 };
// Valid is 0 alone. What is not in the table is unverified.
StatusClass ClassifyStatus(std::uint32_t status);

}  // namespace tessaly

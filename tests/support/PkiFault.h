#pragma once
// How the fixtures complain: an exception with what could not be made and the crypto library's reason.

#include <openssl/err.h>

#include <array>
#include <stdexcept>
#include <string>

namespace tests {

inline void Require(bool success, const char* what) {
    if (success) return;
    std::array<char, 256> reason{};
    ERR_error_string_n(ERR_get_error(), reason.data(), reason.size());
    throw std::runtime_error(std::string("cannot make ") + what + ": " + reason.data());
}

}  // namespace tests

#pragma once
// Objects of the crypto library for fixtures: owned, or an exception with what could not be made and the reason.

#include <openssl/err.h>

#include <array>
#include <stdexcept>
#include <string>

#include "platform/posix/OpenSsl.h"
#include "tests/support/Pki.h"

namespace tests {

inline void Require(bool success, const std::string& what) {
    if (success) return;
    std::array<char, 256> reason{};
    ERR_error_string_n(ERR_get_error(), reason.data(), reason.size());
    throw std::runtime_error("cannot make " + what + ": " + reason.data());
}

// Made<ASN1_TIME_free>(ASN1_TIME_set(...), "time")
template <auto Free, typename T>
platform::posix::Owned<T, Free> Made(T* object, const std::string& what) {
    Require(object != nullptr, what);
    return platform::posix::Owned<T, Free>(object);
}

inline auto MadeTime(std::int64_t moment) {
    return Made<ASN1_TIME_free>(ASN1_TIME_set(nullptr, moment), "time");
}

inline auto MadeExtension(const Extension& extension) {
    const auto oid = Made<ASN1_OBJECT_free>(OBJ_txt2obj(extension.oid.c_str(), 0), "extension type " + extension.oid);
    const auto value = Made<ASN1_OCTET_STRING_free>(ASN1_OCTET_STRING_new(), "extension value");
    ASN1_OCTET_STRING_set(value.get(), extension.value.data(), static_cast<int>(extension.value.size()));
    return Made<X509_EXTENSION_free>(
        X509_EXTENSION_create_by_OBJ(nullptr, oid.get(), extension.critical ? 1 : 0, value.get()), extension.oid);
}

}  // namespace tests

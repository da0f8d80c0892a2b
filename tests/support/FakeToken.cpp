#include "tests/support/FakeToken.h"

#include <dlfcn.h>

#include <stdexcept>

#include "platform/Keys.h"

namespace tests {

FakeToken::FakeToken(Profile& profile, const Certificate& certificate) {
    const auto module = std::filesystem::path(NORVIK_BINARY_DIR) / "lib/norvik-fake-token.so";
    UsePkcs11Module(profile, "fake", module);
    library_ = dlopen(module.c_str(), RTLD_NOW | RTLD_LOCAL);
    using Access = FakeTokenState* (*)();
    const auto access = library_ == nullptr ? nullptr : reinterpret_cast<Access>(dlsym(library_, "TheFakeTokenState"));
    if (access == nullptr) throw std::runtime_error("no fake token: " + module.string());
    state_ = access();
    *state_ = {};
    state_->certificate = certificate.Der();
    state_->signingKey = certificate.PrivateKey().get();
}

FakeToken::~FakeToken() {
    platform::ReleaseTokens();
    *state_ = {};
    dlclose(library_);
}

}  // namespace tests

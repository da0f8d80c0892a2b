#include "tests/support/FakeToken.h"

#include <dlfcn.h>

#include <stdexcept>

#include "platform/Keys.h"

namespace tests {

FakeToken::FakeToken(Profile& profile, const Certificate& certificate) {
    const char* const module = NORVIK_BINARY_DIR "/lib/norvik-fake-token.so";
    UsePkcs11Module(profile, "fake", module);
    library_ = dlopen(module, RTLD_NOW | RTLD_LOCAL);
    if (library_ == nullptr) throw std::runtime_error(dlerror());
    state_ = reinterpret_cast<FakeTokenState* (*)()>(dlsym(library_, "TheFakeTokenState"))();
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

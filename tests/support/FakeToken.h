#pragma once
// A card that does as it is told: a PKCS#11 module of our own with one slot, one key and one certificate, for what a
// software token never does - a PIN for each use, a last try, a chosen fault, being pulled out in the middle.

#include <p11-kit/pkcs11.h>

#include "tests/support/SoftToken.h"

namespace tests {

// Shared with the module, which lives in this process.
struct FakeTokenState {
    // How the card is
    bool present = true;
    bool loginRequired = true;
    bool protectedPath = false;
    bool alwaysAuthenticate = false;
    bool showsPublicKey = true;
    std::string pin = "1234";
    int triesLeft = 3;
    Bytes certificate, authority;    // DER; an authority's certificate lies there without a key if given
    EVP_PKEY* signingKey = nullptr;  // RSA
    std::string failingCall;         // "C_Sign": this call answers `fault`
    CK_RV fault = CKR_OK;
    std::string pulledOutAt;  // "C_Sign": at this call the card leaves the reader
    // What happened to it
    int userLogins = 0, contextLogins = 0, logouts = 0, signatures = 0, wrongPins = 0;
    int openSessions = 0;
    bool loggedIn = false;
};

// The module as the only one that p11-kit knows in this process, with this certificate on it.
class FakeToken {
  public:
    FakeToken(Profile& profile, const Certificate& certificate);
    ~FakeToken();
    FakeToken(const FakeToken&) = delete;
    FakeToken& operator=(const FakeToken&) = delete;
    FakeTokenState* operator->() { return state_; }

  private:
    void* library_;
    FakeTokenState* state_;
};

}  // namespace tests

#pragma once
// What the tests of answers from the network have in common.

#include <gmock/gmock.h>

#include "tests/support/OcspResponder.h"
#include "tests/support/OnlineWorld.h"
#include "tests/support/Process.h"

namespace tests {

constexpr platform::ErrorCode kSilent = platform::CRYPT_E_REVOCATION_OFFLINE,
                              kNobody = platform::CRYPT_E_NO_REVOCATION_CHECK;
const std::int64_t kNow = std::time(nullptr);

inline HttpAnswer AnswerWith(ByteView body) {
    return {.body = std::string(platform::AsText(body))};
}
inline CrlSpec Outdated() {
    return {.thisUpdate = kNow - 9 * kDay, .nextUpdate = kNow - kDay};
}
// From now on a responder with this key answers at /ocsp.
inline void ServeOcsp(OnlineWorld& online, const Certificate& signer, const OcspSpec& spec = {}) {
    online.server.Serve("/ocsp", [spec, signer, issuer = online.ca](const HttpRequest& request) {
        return AnswerWith(AnswerOcsp(platform::AsBytes(request.body), issuer, signer, spec));
    });
}

class OnlineFixture : public testing::Test {
  protected:
    Profile profile_;  // the caches of a test are its own
};

}  // namespace tests

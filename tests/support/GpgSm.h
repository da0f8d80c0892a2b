#pragma once
// A keyring of gpgsm's for one test.

#include "tests/support/Pki.h"

namespace tests {

class GpgSm {
  public:
    static bool Available();
    // Trusts the root and knows the signer, if one is given, with its key; `between` are the authorities in the middle.
    // Throws std::runtime_error if gpgsm does not take them.
    GpgSm(Profile& profile, const Certificate& root, const std::optional<Certificate>& signer = {},
          const std::vector<Certificate>& between = {});
    // The agent keeps running and would keep the folder.
    ~GpgSm();
    GpgSm(const GpgSm&) = delete;
    GpgSm& operator=(const GpgSm&) = delete;

    // Runs gpgsm in the profile's folder. Whether it succeeded.
    [[nodiscard]] bool Run(const std::vector<std::string>& options) const;

  private:
    const Profile& profile_;
};

}  // namespace tests
